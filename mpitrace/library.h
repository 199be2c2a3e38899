#pragma once

#include <cstddef>
#include <cstdint>

/// The MPI that the program uses, found when it is called for the first time. Nothing is known of
/// it when this is built: handles are numbers of four bytes in one family (MPICH and its kin) and
/// pointers in the other (Open MPI), and constants differ.
///
/// All arguments of the calls that are recorded are numbers or pointers, and travel in whole words
/// in the calling conventions of 64-bit Linux. The upper half of a word that holds a shorter number
/// means nothing.
using Word = std::uintptr_t;

struct Library {
    enum Family { NONE, POINTERS, NUMBERS };

    Family family = NONE;
    Word world = 0; // MPI_COMM_WORLD
    Word noComm = 0;
    int anySource = 0;
    int nobody = 0; // MPI_PROC_NULL

    /// Looks for it. Its functions can be called once it is found.
    void find();
    /// The function of that name behind this library's own; null: there is none.
    static void* next(const char* name);

    int rank() const;
    int size() const;
    /// Whether several threads may call at a time.
    bool threaded() const;
    /// How many members a communicator has, those of the other side in one between two groups.
    int sizeOf(Word comm) const;
    /// The ranks of those in MPI_COMM_WORLD; false: unknown.
    bool ranksOf(Word comm, int count, int* ranks) const;
    /// The handle that stands at an address.
    Word handleAt(Word address) const;
    std::size_t handleSize() const { return family == POINTERS ? sizeof(Word) : sizeof(int); }
    /// The handle as one word.
    Word handle(Word argument) const {
        return family == POINTERS ? argument : static_cast<std::uint32_t>(argument);
    }
    /// The communicator of a number in Fortran.
    Word commOf(int fortran) const;
};

#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What a task does in MPI at a moment, as libvexmpi.so has written it down. A value.
struct MpiState {
    enum Kind {
        NO_PROCESS, // there is none at the moment
        NO_LIBRARY, // libvexmpi.so is not loaded
        NO_LOADER,  // nor can it be: the program is linked statically as a whole
        NO_MPI,     // it is loaded, and no library of an MPI is: that is linked statically, or none
        NOT_STARTED, // MPI_Init was not called yet
        OUTSIDE,     // in no call
        INSIDE,
        OVER, // MPI_Finalize is over
    };
    /// A communicator of the task.
    struct Comm {
        std::uint64_t id = 0;          // the same in all members
        std::uint32_t size = 0;        // members
        std::uint32_t collectives = 0; // how many the task has begun
        bool operator==(const Comm&) const = default;
    };
    /// In the place of a rank.
    static constexpr int anybody = -1, unknown = -3;
    static constexpr int anyTag = -1, noTag = -2;
    /// The communicator MPI_COMM_WORLD.
    static constexpr std::uint64_t worldId = 1;

    Kind kind = NO_PROCESS;
    /// Whether a debugger, or a signal, holds it.
    bool stopped = false;
    /// Whether a debugger keeps it from ending its job in this call; readers do not know.
    bool kept = false;
    int rank = -1; // in MPI_COMM_WORLD
    int size = 0;  // of that
    std::uint64_t calls = 0;
    std::vector<Comm> comms;

    // While INSIDE.
    std::string call; // "MPI_Recv"
    int tag = noTag;
    /// The ranks in MPI_COMM_WORLD that it waits for: one of them at least.
    std::vector<int> peers;
    /// The number of the collective call on the communicator, from 1, that it waits for; 0: none.
    std::uint32_t collective = 0;
    Comm comm;

    bool operator==(const MpiState&) const = default;
};

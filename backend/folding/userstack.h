#pragma once

#include "backend/drivers/driver.h"

#include <string>
#include <string_view>
#include <vector>

/// The calls of one thread as their program's author knows them: what a communication or waiting
/// call does inside is left out, and so is what stands below main.
class UserStack {
  public:
    /// The innermost call first.
    explicit UserStack(std::vector<Driver::StackLine> calls);

    /// What is left of them. The name of a call that was folded is that of its standard: MPI_Recv
    /// for PMPI_Recv and mpi_recv_ alike, without a place. Behind abort stands who is to blame.
    const std::vector<Driver::StackLine>& calls() const { return kept; }
    /// Whether its author may have written that function.
    static bool isOfProgram(const Driver::StackLine& call);
    /// Whether no call belongs to the program: a library keeps such a thread for itself.
    bool isHelper() const { return helper; }
    /// The library that the thread works for, "libucs".
    const std::string& library() const { return libraryName; }

    /// Whether a thread waits in a call that has been folded, or communicates, by its name.
    static bool waits(std::string_view call);

  private:
    std::vector<Driver::StackLine> kept;
    bool helper = false;
    std::string libraryName;
};

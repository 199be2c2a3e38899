#pragma once

#include <string>
#include <sys/types.h>

/// One task of a running job, to which a debugger attaches.
struct Target {
    /// Its number in the job; -1: it has none.
    int rank = -1;
    /// Process id on its host.
    pid_t pid = 0;
    /// As it is reached from here; empty: this machine.
    std::string host = "";
    /// What it executes; empty: this is known where it runs.
    std::string program = "";
    bool operator==(const Target&) const = default;
};

#pragma once

#include <string>
#include <sys/types.h>

/// One task of a running job, to which a debugger attaches.
struct Target {
    /// The number of the task in its job; -1: it has none.
    int rank = -1;
    /// Process id on its host.
    pid_t pid = 0;
    /// The host by the name that reaches it from here; empty: this machine.
    std::string host = "";
    /// The name of its program; empty: to be found out where it runs.
    std::string program = "";
    bool operator==(const Target&) const = default;
};

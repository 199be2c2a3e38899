#pragma once

#include <string>
#include <sys/types.h>

/// Which process a client's task is, as /proc tells.
struct Identity {
    /// -1 when it has no process at the moment.
    pid_t pid = -1;
    std::string host;
    /// The task's number within the parallel job; empty when its environment does not tell.
    std::string rank;
    std::string program;
    /// The core file that a debugger looks at in the place of a process; empty: none.
    std::string core;

    /// The process that a debugger of this host has started or attached to, or its core file.
    static Identity underDebugger(pid_t debugger);
    /// A process of this host.
    static Identity ofProcess(pid_t pid);
    /// "rank 3  host node1  pid 4711  solver".
    std::string str() const;
};

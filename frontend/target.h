#pragma once

#include <sys/types.h>

/// One task of a running job, to which a debugger attaches.
struct Target {
    /// Its number in the job; -1: it has none.
    int rank = -1;
    /// Process id on this machine.
    pid_t pid = 0;
    bool operator==(const Target&) const = default;
};

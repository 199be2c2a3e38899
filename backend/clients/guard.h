#pragma once

#include "backend/clients/detachment.h"

#include <csignal>
#include <initializer_list>
#include <sys/types.h>

/// Two processes of which each notices the other's end, whatever caused it, SIGKILL too: the guard
/// outlives its child and takes down what the child leaves behind; the child gets SIGTERM when the
/// guard ends. Both are reapers (PR_SET_CHILD_SUBREAPER in prctl(2)) of what is started below them.
/// Made in a process that has no children yet; the child returns from the constructor as well.
class Guard {
  public:
    /// Forks. The guard passes these signals on: SIGQUIT as SIGKILL, every other one as SIGTERM;
    /// the child does with them what this process did. Throws std::system_error.
    explicit Guard(std::initializer_list<int> signals);

    /// Whether this process is the child.
    bool isChild() const { return id == 0; }
    /// In the child: whether the guard had ended before the child could notice it.
    bool isOrphan() const { return orphan; }
    /// In the guard: the child's process id.
    pid_t child() const { return id; }
    /// In the guard: waits for the end of the child, then completes the Detachment of what it has
    /// left behind, as `rest` says. Gives the child's status as waitpid does.
    int wait(const Detachment::Rest& rest) const;

  private:
    sigset_t heard;
    pid_t id;
    bool orphan = false;
};

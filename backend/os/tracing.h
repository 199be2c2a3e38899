#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

/// What this system lets a debugger do, found out before a debugger is started.
namespace Tracing {

/// Whether a process may be traced at all; containers often forbid it.
bool works();

/// What is known of a process that cannot be traced.
struct Facts {
    bool exists = false;
    bool zombie = false;
    /// The process of which it is a thread; -1: it is a process itself.
    pid_t processOf = -1;
    std::string owner; // of the process; empty: the asking user's own
    pid_t tracer = 0;  // the process that traces it already; 0: none
    std::string tracerName;
    int yamaScope = 0; // kernel.yama.ptrace_scope
};

/// Why a process cannot be traced and what to do about it, as a sentence.
std::string refusal(pid_t pid, const Facts& facts);
/// Throws std::runtime_error with such a sentence unless children of this process may attach to the
/// process. Tries it, without stopping the process.
void checkAttach(pid_t pid);
/// The process that traces a process; 0: none does, or there is no such process.
pid_t tracerOf(pid_t pid);
/// Whether a debugger traces a process, by itself or by a server that it has started.
bool isTracedBy(pid_t debugger, pid_t pid);
/// A process that a debugger traces, wherever it stands in the tree of processes: a child of what
/// it has let go, or what it has attached to; -1: none. A look at all processes serves for whoever
/// asks within twice the time that it took.
pid_t tracedBy(pid_t debugger);

/// Whether a process that nobody traces stands still by a signal (SIGSTOP, say).
bool isStopped(pid_t pid);

/// The processes that descendants of a process trace and that are no descendants themselves: tasks
/// that were there before their debuggers. Descendants below `except` do not count, nor does it.
std::vector<pid_t> heldFrom(pid_t root, pid_t except = -1);

} // namespace Tracing

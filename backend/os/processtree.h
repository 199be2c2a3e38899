#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// Processes and their parents, found in /proc. What the debuggers started and what those started
/// in turn are all found below the session's process, also when their parent has gone: it is their
/// reaper, see PR_SET_CHILD_SUBREAPER in prctl(2).
namespace ProcessTree {

/// A file of /proc/PID as it stands; empty when the process is gone, or does not show it.
std::string fileOf(pid_t id, const std::string& name);

/// All process ids, as /proc lists them at this moment.
std::vector<pid_t> everyone();
/// The descendants of a process, the deepest first, without itself; without those below `except`,
/// and it. Looks at no other process where the kernel lists the children of each.
std::vector<pid_t> descendants(pid_t root, pid_t except = -1);
/// The living children of a process.
std::vector<pid_t> children(pid_t parent);
/// The parent of a process; 0: it is gone, or dead and not reaped.
pid_t parentOf(pid_t id);
/// When a process was started, in the kernel's units: tells it from a later process of the same
/// number. 0: it is gone.
unsigned long long startOf(pid_t id);
/// A field of /proc/PID/status, without the blanks in front; empty when there is none.
std::string statusField(pid_t pid, const std::string& name);
/// The file that a process executes; empty when it is gone or does not show it.
std::string executableOf(pid_t id);
/// Whether two processes have one memory, as after vfork(2) until the child executes something;
/// false where the kernel does not tell.
bool shareMemory(pid_t one, pid_t other);
/// The command line of a process; empty when it is gone or does not show it.
std::vector<std::string> wordsOf(pid_t id);
/// The name of the program that a process runs, at most 15 bytes; empty when it is gone.
std::string nameOf(pid_t id);
/// The process of a task's program: the only child of a shell by which the launcher has started the
/// task, else the task itself.
pid_t programOf(pid_t task);
/// A variable of the environment that a process was started with; nothing when it has none or does
/// not show it.
std::optional<std::string> variable(pid_t id, const std::string& name);
/// Kills these descendants by SIGKILL, the deepest first, until none is left; waits at most about a
/// second.
void killDescendants(pid_t root, pid_t except = -1);
/// A child of this process that has ended and that nobody has reaped; nothing when there is none.
std::optional<pid_t> endedChild();
/// Reaps the ended children of this process that are not among `known` (ascending).
void reapStrangers(const std::vector<pid_t>& known);

} // namespace ProcessTree

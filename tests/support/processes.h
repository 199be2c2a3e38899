#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

/// The processes of this machine, as /proc shows them.
namespace Processes {

/// A file of /proc/PID; empty when the process is gone, or does not show it.
std::string content(pid_t pid, const char* file);
/// All that were started with this entry in their environment.
std::vector<pid_t> startedWith(const std::string& entry);
/// All that descend from a process, as of now.
std::vector<pid_t> descendants(pid_t ancestor);
pid_t parent(pid_t pid);
/// The name of the program that a process runs; empty when the process is gone.
std::string name(pid_t pid);
/// Whether the process is there and no zombie.
bool lives(pid_t pid);

} // namespace Processes

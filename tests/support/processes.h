#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

/// The processes of this machine, as /proc shows them.
namespace Processes {

/// All that descend from a process, as of now.
std::vector<pid_t> descendants(pid_t ancestor);
pid_t parent(pid_t pid);
/// The name of the program that a process runs; empty when the process is gone.
std::string name(pid_t pid);
/// Whether the process is there and no zombie.
bool lives(pid_t pid);

} // namespace Processes

#pragma once

#include "backend/jobs/runningjob.h"

#include <iosfwd>
#include <string>
#include <vector>

/// Finds the tasks of a job on other hosts, where only the launcher's process managers and the
/// tasks' environment tell them: an agent there lists them.
namespace RemoteTasks {

/// Adds them to the job; the standard error tells what cannot be found. The words of `rsh` start a
/// program on the host that is put behind them; `agent` is the agent's path on those hosts. Returns
/// when all hosts have answered or their logins ended; SIGINT gives up. Handles SIGCHLD and SIGINT
/// while it runs, and leaves SIGINT ignored. Throws std::runtime_error.
void addTo(RunningJob& job, const std::vector<std::string>& rsh, const std::string& agent);

/// On the agent's side: lists the tasks of a process manager of this host, one "task RANK PID
/// PROGRAM" a line, and "size N" where the size of the whole job is known.
void list(const std::string& manager, std::ostream& out);

} // namespace RemoteTasks

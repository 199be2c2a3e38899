#pragma once

#include "backend/jobs/runningjob.h"

#include <iosfwd>
#include <string>
#include <vector>

/// Finding the tasks of a job on other hosts, where only MPICH's process managers know them: an
/// agent there lists them.
namespace RemoteTasks {

/// Adds them to the job; what cannot be found is told on the standard error. The words start a
/// program on a host that is put behind them; the agent's path is one of the other hosts'. Returns
/// when all have answered or ended; SIGINT gives up. Handles both signals while it runs, and
/// ignores SIGINT after it. Throws std::runtime_error.
void addTo(RunningJob& job, const std::vector<std::string>& rsh, const std::string& agent);

/// The agent's side: lists the tasks of a process manager of this host, one "task RANK PID PROGRAM"
/// a line.
void list(const std::string& manager, std::ostream& out);

} // namespace RemoteTasks

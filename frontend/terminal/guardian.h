#pragma once

#include "frontend/session/options.h"
#include "frontend/session/session.h"

#include <optional>

/// The process that outlives a session's own: whatever ends that, SIGKILL too, it takes down what
/// is left. It has no terminal.
namespace Guardian {

/// Starts the session's process, which gets SIGTERM when this process is killed. There it gives
/// nothing: the caller serves the session and ends with an exit status. Here it waits for that end,
/// gives debuggers that have attached time to let go and, where there are agents, those that
/// started them time to clear up, kills its descendants that are left, removes the session's files,
/// and gives the exit status: the session's, or 128 and the number of the signal that killed it.
/// SIGTERM and SIGINT are passed on to the session; SIGQUIT kills it. The session's process alone
/// keeps the line. This process must have been forked for this and have no children. Throws
/// std::system_error.
std::optional<int> run(Session& session, Channel& line, const Options& options);

} // namespace Guardian

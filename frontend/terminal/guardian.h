#pragma once

#include "frontend/session/session.h"

#include <functional>

/// The process that outlives a session's own: whatever ends that, SIGKILL too, it takes down what
/// is left. It has no terminal.
namespace Guardian {

/// Starts the session's process, which executes `serve`, ends with its result as exit status, and
/// gets SIGTERM when this process is killed. Waits for its end, gives debuggers that have attached
/// time to let go and, where there are agents, those who started them time to clear up, kills its
/// descendants that are left (all are found, see PR_SET_CHILD_SUBREAPER in prctl(2)), and removes
/// the session's files. SIGTERM and SIGINT are passed on to the session; SIGQUIT kills it. Gives
/// the exit status: the session's, or 128 and the number of the signal that killed it. The
/// session's process alone keeps the line. This process must have been forked for this and have no
/// children. Throws std::system_error.
int run(Session& session, Channel line, bool agents,
        const std::function<int(Session& session, Channel line)>& serve);

} // namespace Guardian

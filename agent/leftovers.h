#pragma once

#include "backend/drivers/debuggerstart.h"
#include "backend/os/eventloop.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

/// Ends what is left of tasks whose keeper was killed: no process of VEX's is above it any more,
/// but all that a debugger starts has the names of the session and the task in its environment. One
/// look at the processes of this host for all tasks that are lost at about the same time. One
/// thread.
class Leftovers {
  public:
    /// The session and the task, as the environment of all that a debugger starts has them.
    using Mark = std::pair<std::string, std::string>;
    using Marks = std::set<Mark>;

    /// What a debugger that is started so gives to all that it starts.
    static Mark markOf(const DebuggerStart& start);

    explicit Leftovers(EventLoop& loop) : timer(loop) {}

    /// Kills the processes that have one of these marks, soon; calls `then` once nothing is to be
    /// killed any more.
    void kill(const Marks& marks, EventLoop::Task then);

  private:
    Timer timer;
    Marks sought;
    std::vector<EventLoop::Task> waiting; // for the look

    void look(int round);
};

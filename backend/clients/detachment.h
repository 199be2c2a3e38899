#pragma once

#include "backend/os/eventloop.h"

#include <functional>
#include <sys/types.h>
#include <vector>

/// The time that debuggers get to let go of tasks which were there before them and run on after
/// them, without breakpoints; a killed debugger would leave its breakpoints behind. One thread.
class Detachment {
  public:
    /// `busy` says whether a debugger still runs, or whatever else is waited for. `done` runs once.
    Detachment(EventLoop& loop, std::function<bool()> busy, std::function<void()> done);
    /// Those that were stopped go on.
    ~Detachment();

    /// The debuggers were told to let go.
    void begin();
    /// Something has ended.
    void look();

  private:
    const std::function<bool()> busy;
    const std::function<void()> done;
    Timer timer;
    std::vector<pid_t> stopped;
    int rounds = 0;
    bool under = false;

    void wait();
};

namespace Aftermath {

/// In the reaper (PR_SET_CHILD_SUBREAPER) of a process that has ended, whose debuggers are told to
/// let go by that: gives them time, then kills what is left below this process. When `patient`,
/// also what holds no task gets time.
void clear(bool patient);

} // namespace Aftermath

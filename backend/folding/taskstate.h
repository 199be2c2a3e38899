#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/linecutter.h"
#include "backend/os/clock.h"

#include <string_view>

/// Whether a client's task runs: as its debugger tells it, or while it tells nothing, by the lines
/// that are typed. While the task stands still, what is printed is the debugger's. A value.
class TaskState {
  public:
    /// The debugger has said so.
    void told(bool nowRuns) {
        isTold = true;
        running = nowRuns;
    }
    /// A line is typed at the debugger; an empty one repeats the line before it.
    void typed(std::string_view line, const Driver& driver) {
        if (!line.empty()) lineLetsRun = driver.letsRun(line);
        if (!isTold) running = lineLetsRun;
    }
    /// The debugger has answered the line.
    void answered() {
        if (!isTold) running = false;
    }
    bool runs() const { return running; }

    /// When the unfinished line, which there must be, is to be shown as it stands: soon when it is
    /// a question or may be the program's, after some silence when it is the debugger's.
    Clock::time_point shows(const LineCutter& line, const Driver& driver) const {
        if (driver.asks(line.tail())) return *line.since() + Wait::window;
        return running && !driver.beginsStop(line.tail()) ? *line.since() + Wait::halfLine
                                                          : line.grownAt() + Wait::silence;
    }

  private:
    bool isTold = false;
    bool running = false;
    bool lineLetsRun = false;
};

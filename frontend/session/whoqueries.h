#pragma once

#include "backend/os/eventloop.h"
#include "common/command.h"

#include <functional>
#include <utility>
#include <vector>

/// The consoles that want to know which processes the tasks are, when agents must be asked for it.
/// One thread.
class WhoQueries {
  public:
    /// `ask` asks the agents and says how many will answer. `proceed` gets each command when all
    /// have, or a moment has passed.
    WhoQueries(EventLoop& loop, std::function<int()> ask,
               std::function<void(int console, const Command& command)> proceed);

    void want(int console, const Command& command);
    /// The console waits for it no longer.
    void forget(int console);
    /// One has answered, or will not.
    void answered();

  private:
    const std::function<int()> ask;
    const std::function<void(int console, const Command& command)> proceed;
    std::vector<std::pair<int, Command>> asking;
    int due = 0;
    Timer patience;

    void finish();
};

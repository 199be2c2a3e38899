#pragma once

#include <cstddef>
#include <deque>
#include <set>
#include <utility>

/// Starts debuggers in their order, at most so many at a time: starting reads symbols, and more at
/// a time than there are processors makes nothing faster. Passive. One thread.
class StartQueue {
  public:
    /// Starts debuggers, by the numbers of their clients; from within ask, over or forget.
    class Starter {
      public:
        virtual ~Starter() = default;
        virtual void startDebugger(int client) = 0;
    };

    explicit StartQueue(std::size_t limit) : most(limit) {}

    void ask(Starter& starter, int client);
    /// The start is over, well or not, or not wanted any more; not for the first time, perhaps.
    void over(Starter& starter, int client);
    /// The same for all starts of a starter.
    void forget(Starter& starter);

  private:
    using Start = std::pair<Starter*, int>;

    const std::size_t most;
    std::deque<Start> waiting;
    std::set<Start> underWay;

    void next();
};

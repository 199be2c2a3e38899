#pragma once

#include <deque>

/// The requests of this console that the front end has yet to answer, in the order in which they
/// were made; the front end answers them in order. Guarded by the turn.
class OpenRequests {
  public:
    enum Kind { NONE, GROUP, FILTERED, ON, INTERRUPT };

    void push(Kind kind) { kinds.push_back(kind); }
    /// Takes out the request that an answer belongs to; NONE when none is open.
    Kind pop();
    /// Takes out the open interrupts: clients that are ready have answered them.
    void dropInterrupts() { std::erase(kinds, INTERRUPT); }
    /// Gives up waiting for answers.
    void clear() { kinds.clear(); }
    bool empty() const { return kinds.empty(); }

  private:
    std::deque<Kind> kinds;
};

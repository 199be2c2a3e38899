#pragma once

#include "backend/os/eventloop.h"

#include <functional>
#include <initializer_list>
#include <memory>

/// Signals of this process as events of a loop, from its construction on, and blocked while it
/// lives: children must unblock them. Not to be destroyed by its handler. One thread. Throws
/// std::system_error.
class Signals {
  public:
    using Handler = std::function<void(int number)>;

    Signals(EventLoop& loop, std::initializer_list<int> numbers, Handler handler);
    ~Signals();
    void add(int number);

  private:
    struct State;
    const std::unique_ptr<State> state;
};

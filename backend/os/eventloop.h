#pragma once

#include "backend/os/clock.h"

#include <functional>
#include <memory>

/// The one event loop of a process: runs what was posted, timers that are due, signals that came
/// and streams that are ready, one after the other. One thread. Must outlive everything that was
/// made with it.
class EventLoop {
  public:
    using Task = std::function<void()>;

    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    /// Comes back when the loop is stopped, or nothing is left to wait for.
    void run();
    /// Makes run come back, after the task at hand.
    void stop();
    /// Runs the task in a later turn, never from within this call.
    void post(Task task);

    /// What the library behind the loop keeps, for the classes of this folder that stand on it.
    struct Context;
    Context& context() { return *impl; }

  private:
    const std::unique_ptr<Context> impl;
};

/// Calls a function once, when a time has come; from the event loop, never from within a call. One
/// thread.
class Timer {
  public:
    explicit Timer(EventLoop& loop);
    /// Calls nothing any more.
    ~Timer();
    Timer(Timer&& other) noexcept;
    Timer& operator=(Timer&& other) noexcept;

    /// Calls `then` after this time, in place of what was set before.
    void after(Clock::duration time, EventLoop::Task then);
    /// The same at a point in time.
    void at(Clock::time_point time, EventLoop::Task then);
    /// Forgets what was set.
    void cancel();

  private:
    struct State;
    std::shared_ptr<State> state;
};

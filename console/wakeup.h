#pragma once

/// A doorbell for a thread that sleeps in poll: an eventfd. ring may be called from any thread and
/// from a signal handler; it is never lost and never blocks.
class Wakeup {
  public:
    /// Throws Error ERR_SYSCALL.
    Wakeup();
    ~Wakeup();
    Wakeup(const Wakeup&) = delete;
    Wakeup& operator=(const Wakeup&) = delete;

    /// Readable from the first ring until drain.
    int getFd() const { return fd; }
    /// Async-signal-safe; keeps errno.
    void ring() const;
    void drain() const;
    /// Sleeps until the bell rings, then drains it; ms < 0 waits without limit.
    void wait(int ms) const;

  private:
    int fd;
};

#pragma once

#include "backend/os/eventloop.h"

#include <memory>

/// Tells when a descriptor can be read or written. Does not read or write by itself, and does not
/// own the descriptor, which must be closed after this was released or destroyed. Not for regular
/// files. One thread; the calls come from the event loop, never from within a call.
class Stream {
  public:
    explicit Stream(EventLoop& loop);
    Stream(EventLoop& loop, int fd);
    /// Calls nothing any more.
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// Takes a descriptor up; there was none before. Throws std::system_error.
    void watch(int fd);
    /// Gives it up, and forgets what it was asked for.
    void release();
    /// Forgets what it was asked for.
    void cancel();
    /// Whether it has a descriptor.
    bool watching() const;

    /// Calls `then` once, when a read would not block: there is something, an end or an error.
    /// Throws std::system_error.
    void whenReadable(EventLoop::Task then);
    /// The same for writing.
    void whenWritable(EventLoop::Task then);

  private:
    struct State;
    const std::shared_ptr<State> state;
};

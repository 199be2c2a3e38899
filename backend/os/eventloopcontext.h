#pragma once

#include "backend/os/eventloop.h"

#include <asio/io_context.hpp>

#include <cerrno>
#include <system_error>

/// Finds the failed system calls of which the library does not tell: without what the kernel has
/// refused to watch, a program would wait for ever.
class ErrnoWatch {
  public:
    ErrnoWatch() { errno = 0; }
    /// Throws std::system_error when a call has failed since.
    void check(const char* what) const {
        if (errno != 0) throw std::system_error(errno, std::generic_category(), what);
    }
};

/// For the sources of this folder alone: no other source names the library.
struct EventLoop::Context {
    Context();
    asio::io_context io;
};

#pragma once

#include "backend/os/eventloop.h"

#include <asio/io_context.hpp>

/// For the sources of this folder alone: no other source names the library.
struct EventLoop::Context {
    asio::io_context io;
};

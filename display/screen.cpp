#include "display/screen.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <poll.h>
#include <unistd.h>
#include <utility>

void Screen::grow(std::size_t bytes) {
    capacity = std::max({2 * capacity, length + bytes, piece + piece / 4});
    auto larger = std::make_unique_for_overwrite<char[]>(capacity);
    if (length > 0) std::memcpy(larger.get(), buffer.get(), length);
    buffer = std::move(larger);
}

std::atomic<bool> Screen::gone = false;
std::atomic<int> Screen::lost = 0;

void Screen::fail() {
    if (errno == EPIPE || errno == EIO)
        gone = true;
    else
        lost = errno;
}

void Screen::flushStdio() {
    if (std::fflush(stdout) == EOF) fail();
}

void Screen::flush() {
    flushStdio();
    const char* at = buffer.get();
    for (std::size_t left = length; left > 0;) {
        const ssize_t put = ::write(STDOUT_FILENO, at, left);
        if (put > 0) {
            at += put;
            left -= static_cast<std::size_t>(put);
        } else if (put == -1 && errno == EAGAIN) {
            pollfd output{STDOUT_FILENO, POLLOUT, 0};
            ::poll(&output, 1, -1);
        } else if (put == 0 || errno != EINTR) {
            if (put == -1) fail();
            break;
        }
    }
    length = 0;
}

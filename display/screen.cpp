#include "display/screen.h"

#include <cerrno>
#include <cstdio>
#include <poll.h>
#include <unistd.h>

void Screen::flush() {
    std::fflush(stdout);
    const char* at = text.data();
    for (std::size_t left = text.size(); left > 0;) {
        const ssize_t put = ::write(STDOUT_FILENO, at, left);
        if (put > 0) {
            at += put;
            left -= static_cast<std::size_t>(put);
        } else if (put == -1 && errno == EAGAIN) {
            pollfd output{STDOUT_FILENO, POLLOUT, 0};
            ::poll(&output, 1, -1);
        } else if (put == 0 || errno != EINTR) {
            break;
        }
    }
    text.clear();
}

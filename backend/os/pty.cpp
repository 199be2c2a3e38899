#include "backend/os/pty.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <system_error>
#include <termios.h>

namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

Pty::Pty() {
    front.reset(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    if (!front) fail("cannot open a pseudo-terminal");
    char buffer[64];
    if (::grantpt(front.get()) == -1 || ::unlockpt(front.get()) == -1 ||
        ::ptsname_r(front.get(), buffer, sizeof buffer) != 0)
        fail("cannot set up a pseudo-terminal");
    path = buffer;
    back.reset(::open(buffer, O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!back) fail("cannot open a pseudo-terminal");
    termios mode{};
    if (::tcgetattr(back.get(), &mode) == -1) fail("cannot set up a pseudo-terminal");
    ::cfmakeraw(&mode);
    if (::tcsetattr(back.get(), TCSANOW, &mode) == -1) fail("cannot set up a pseudo-terminal");
}

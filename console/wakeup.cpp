#include "console/wakeup.h"

#include "common/catalog.h"
#include "common/error.h"

#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

Wakeup::Wakeup() : fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (fd == -1) throw Error(ERR_SYSCALL, "error when call eventfd");
}

Wakeup::~Wakeup() { ::close(fd); }

void Wakeup::ring() const {
    const int saved = errno;
    const std::uint64_t one = 1;
    // A full counter is as good as a ring: the descriptor is readable already.
    [[maybe_unused]] const ssize_t put = ::write(fd, &one, sizeof one);
    errno = saved;
}

void Wakeup::drain() const {
    std::uint64_t rings;
    [[maybe_unused]] const ssize_t got = ::read(fd, &rings, sizeof rings);
}

void Wakeup::wait(int ms) const {
    pollfd bell{fd, POLLIN, 0};
    ::poll(&bell, 1, ms);
    drain();
}

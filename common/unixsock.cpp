#include "common/unixsock.h"

#include "common/catalog.h"
#include "common/error.h"

#include <cassert>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// The one place that turns errno into an Error: "<what>: <reason>".
void raise(const char* what) {
    const int reason = errno;
    const std::string text = std::string(what) + ": " + std::strerror(reason);
    Error(ERR_SYSCALL, text.c_str());
}

// A zeroed address; its length covers the family and the path without the NUL.
socklen_t fillAddress(sockaddr_un& address, const char* path) {
    address = {};
    address.sun_family = AF_UNIX;
    const std::size_t length = std::strlen(path);
    assert(length < sizeof address.sun_path);
    std::memcpy(address.sun_path, path, length);
    return static_cast<socklen_t>(length + 2);
}

// A signal does not shorten the second between two attempts.
void sleepOneSecond() {
    timespec left{1, 0};
    while (::nanosleep(&left, &left) == -1 && errno == EINTR) {
    }
}

} // namespace

void UnixSocket::open() {
    socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket == -1) raise("error when creating a unix domain socket");
}

int UnixSocket::connect(const char* path, int timeout) {
    assert(timeout > 0);
    for (int attempt = 0; attempt < timeout; ++attempt) {
        open();
        sockaddr_un address;
        const socklen_t length = fillAddress(address, path);
        int result;
        do
            result = ::connect(socket, reinterpret_cast<sockaddr*>(&address), length);
        while (result == -1 && errno == EINTR);
        if (result == 0) return 0;
        if (errno != ECONNREFUSED && errno != ENOENT)
            raise("error when connecting to a unix domain socket");
        close();
        errno = 0;
        sleepOneSecond();
    }
    return ECONNREFUSED;
}

void UnixSocket::bind(const char* path) {
    open();
    const int on = 1;
    if (::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == -1)
        raise("error when setsockopt");
    sockaddr_un address;
    const socklen_t length = fillAddress(address, path);
    ::unlink(path);
    // Private from its first moment: the umask covers the time before chmod.
    const mode_t mask = ::umask(0177);
    const int result = ::bind(socket, reinterpret_cast<sockaddr*>(&address), length);
    const int reason = errno;
    ::umask(mask);
    errno = reason;
    if (result == -1) raise("error when binding unix domain socket");
    ::chmod(path, 0600);
    if (::listen(socket, 8192) == -1) raise("error when listening unix domain socket");
}

std::unique_ptr<UnixSocket> UnixSocket::accept(std::string& peer) {
    sockaddr_un address{};
    socklen_t length = sizeof address;
    int fd;
    do
        fd = ::accept4(socket, reinterpret_cast<sockaddr*>(&address), &length, SOCK_CLOEXEC);
    while (fd == -1 && errno == EINTR);
    if (fd == -1) raise("error when accepting unix domain socket connections");
    constexpr socklen_t family = offsetof(sockaddr_un, sun_path);
    peer.clear();
    if (length > family)
        peer.assign(address.sun_path, ::strnlen(address.sun_path, sizeof address.sun_path));
    return std::make_unique<UnixSocket>(fd);
}

void UnixSocket::waitToRead() {
    pollfd fds[2] = {{socket, POLLIN, 0}, {cancelFd, POLLIN, 0}};
    while (::poll(fds, cancelFd >= 0 ? 2 : 1, -1) == -1) {
        if (errno != EINTR) throw BrokenConnection();
    }
    if (cancelFd >= 0 && fds[1].revents != 0) throw BrokenConnection();
}

void UnixSocket::waitToWrite() {
    pollfd fds[2] = {{socket, POLLOUT, 0}, {cancelFd, POLLIN, 0}};
    int ready;
    while ((ready = ::poll(fds, cancelFd >= 0 ? 2 : 1, -1)) == -1) {
        if (errno != EINTR) throw BrokenConnection();
    }
    if (fds[0].revents != 0) return;
    // Cancelled: what is on its way may still be taken, for a while.
    while ((ready = ::poll(fds, 1, cancelGrace)) == -1 && errno == EINTR) {
    }
    if (ready < 1) throw BrokenConnection();
}

void UnixSocket::read(void* buf, int len) {
    char* at = static_cast<char*>(buf);
    while (len > 0) {
        const std::size_t got = readSome(at, static_cast<std::size_t>(len));
        at += got;
        len -= static_cast<int>(got);
    }
}

std::size_t UnixSocket::readSome(void* buf, std::size_t len) {
    for (;;) {
        if (cancelFd >= 0) waitToRead();
        const ssize_t got = ::read(socket, buf, len);
        if (got > 0) return static_cast<std::size_t>(got);
        if (got == -1 && errno == EAGAIN)
            waitToRead();
        else if (got == 0 || errno != EINTR)
            throw BrokenConnection();
    }
}

void UnixSocket::write(const void* buf, int len) {
    const char* at = static_cast<const char*>(buf);
    while (len > 0) {
        // No SIGPIPE from a socket that the peer has closed; other descriptors take a plain write.
        ssize_t put =
            ::send(socket, at, static_cast<std::size_t>(len), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put == -1 && errno == ENOTSOCK)
            put = ::write(socket, at, static_cast<std::size_t>(len));
        if (put > 0) {
            at += put;
            len -= static_cast<int>(put);
        } else if (put == -1 && errno == EAGAIN) {
            waitToWrite();
        } else if (put == 0 || errno != EINTR) {
            throw BrokenConnection();
        }
    }
}

void UnixSocket::readST(std::string& text) {
    std::size_t total = 0;
    std::size_t chunk = 255;
    char buffer[256];
    for (;;) {
        std::memset(buffer, 0, sizeof buffer);
        const ssize_t got = ::read(socket, buffer, chunk);
        if (got == -1 && errno == EAGAIN) {
            waitToRead();
            continue;
        }
        if (got == -1 && errno == EINTR) continue;
        if (got <= 0) {
            text.push_back('\0');
            throw BrokenConnection();
        }
        const std::size_t size = static_cast<std::size_t>(got);
        if (buffer[size - 1] == '\n') {
            text.append(buffer, size - 1);
            return;
        }
        total += size;
        text.append(buffer, size);
        if (total > 1024 && chunk != 1) chunk /= 2;
    }
}

void UnixSocket::readReq(std::string& text) {
    std::size_t total = 0;
    char last = '\0';
    char buffer[4097];
    for (;;) {
        std::memset(buffer, 0, sizeof buffer);
        const ssize_t got = ::read(socket, buffer, sizeof buffer - 1);
        if (got == -1 && errno == EAGAIN) {
            waitToRead();
            continue;
        }
        if (got == -1 && errno == EINTR) continue;
        if (got <= 0) throw BrokenConnection();
        if (last == '\n' && buffer[0] == '\n') {
            text.push_back('\n');
            text.replace(text.size() - 2, 2, 2, '\0');
            return;
        }
        // Up to the chunk's first NUL: a request is text.
        text.append(buffer);
        total += static_cast<std::size_t>(got);
        last = text.empty() ? '\0' : text.back();
        if (total >= 2 && text.size() >= 2 && last == '\n' && text[text.size() - 2] == '\n') {
            text.replace(text.size() - 2, 2, 2, '\0');
            return;
        }
    }
}

void UnixSocket::disconnect() {
    if (socket != -1) ::shutdown(socket, SHUT_RDWR);
}

void UnixSocket::awaitEnd(int ms) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(ms);
    char dropped[4096];
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return;
        pollfd peer{socket, POLLIN, 0};
        if (::poll(&peer, 1, static_cast<int>(left)) < 1) continue;
        const ssize_t got = ::read(socket, dropped, sizeof dropped);
        if (got == 0 || (got == -1 && errno != EINTR && errno != EAGAIN)) return;
    }
}

void UnixSocket::close() {
    disconnect();
    drop();
}

void UnixSocket::drop() {
    if (socket != -1) ::close(socket);
    socket = -1;
}

void UnixSocket::async() {
    const int flags = ::fcntl(socket, F_GETFL);
    if (flags == -1 || ::fcntl(socket, F_SETFL, flags | O_NONBLOCK) == -1)
        raise("error when fcntl");
}

void UnixSocket::setSbuf(int bytes) {
    if (::setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes) == -1)
        raise("error when setsockopt");
}

void UnixSocket::setRbuf(int bytes) {
    if (::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes) == -1)
        raise("error when setsockopt");
}

std::optional<unsigned> UnixSocket::peerUserOf(int fd) {
    ucred peer{};
    socklen_t length = sizeof peer;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == -1) return std::nullopt;
    return peer.uid;
}

unsigned UnixSocket::peerUser() const {
    const auto user = peerUserOf(socket);
    if (!user) raise("error when getsockopt");
    return *user;
}

#include "frontend/session/channel.h"

#include "common/unixsock.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr int socketType = SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK;
constexpr std::size_t maxText = 4096; // bytes

struct Address {
    sockaddr_un text{};
    socklen_t size;

    explicit Address(const std::string& name)
        : size(static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size())) {
        text.sun_family = AF_UNIX;
        std::memcpy(text.sun_path + 1, name.data(), name.size());
    }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&text); }
};

// Names of the abstract namespace have no owner: both sides check the other's user.
bool isFriend(const Descriptor& socket, bool rootToo) {
    const auto user = UnixSocket::peerUserOf(socket.get());
    return user == ::getuid() || (rootToo && user == 0U);
}

} // namespace

std::pair<Channel, Channel> Channel::pair() {
    int ends[2];
    if (::socketpair(AF_UNIX, socketType, 0, ends) == -1)
        throw std::system_error(errno, std::generic_category(), "cannot make a pair of sockets");
    return {Channel(Descriptor(ends[0])), Channel(Descriptor(ends[1]))};
}

std::optional<Channel> Channel::to(const std::string& name) {
    const Address address(name);
    Descriptor socket(::socket(AF_UNIX, socketType, 0));
    int tries = 100;
    // The listener's queue is full when many connect at once.
    while (::connect(socket.get(), address.get(), address.size) == -1) {
        if (errno != EAGAIN || --tries == 0) return std::nullopt;
        ::usleep(10000);
    }
    if (!isFriend(socket, false)) return std::nullopt;
    return Channel(std::move(socket));
}

Descriptor Channel::listenAs(const std::string& name) {
    const Address address(name);
    Descriptor socket(::socket(AF_UNIX, socketType, 0));
    if (::bind(socket.get(), address.get(), address.size) == -1 || ::listen(socket.get(), 16) == -1)
        socket.reset();
    return socket;
}

std::optional<Channel> Channel::accept(const Descriptor& listener) {
    Descriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket || !isFriend(socket, true)) return std::nullopt;
    return Channel(std::move(socket));
}

bool Channel::say(const std::string& text) const {
    constexpr int maxTries = 20;
    for (int tries = 0; tries < maxTries; ++tries) {
        if (::send(socket.get(), text.data(), std::min(text.size(), maxText),
                   MSG_NOSIGNAL | MSG_DONTWAIT) != -1)
            return true;
        if (errno == ENOBUFS || errno == ENOMEM)
            ::usleep(5000); // the kernel's memory is short at the moment
        else if (errno != EINTR)
            return false;
    }
    return false;
}

std::optional<std::string> Channel::hear(bool& over) const {
    std::array<char, maxText> buffer;
    ssize_t got;
    do
        got = ::recv(socket.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    while (got == -1 && errno == EINTR);
    over = got == 0 || (got == -1 && errno != EAGAIN);
    if (got <= 0) return std::nullopt;
    return std::string(buffer.data(), static_cast<std::size_t>(got));
}

std::optional<std::string> Channel::await(int ms) const {
    pollfd ready{socket.get(), POLLIN, 0};
    if (::poll(&ready, 1, ms) != 1) return std::nullopt;
    bool over = false;
    return hear(over);
}

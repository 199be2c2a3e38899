#include "agent/nodedoor.h"

#include "backend/os/clock.h"
#include "backend/os/descriptorpassing.h"
#include "backend/os/socketaddress.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr auto patience = std::chrono::seconds(10);

void rest() { ::usleep(5000); }

Descriptor newSocket() {
    return Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

Descriptor listenerAt(const SocketAddress& address) {
    Descriptor socket = newSocket();
    if (!socket || ::bind(socket.get(), address.get(), address.length) == -1 ||
        ::listen(socket.get(), SOMAXCONN) == -1)
        return Descriptor();
    return socket;
}

} // namespace

NodeDoor::Found NodeDoor::find(const std::string& name, const KeeperJoin& join) {
    const auto address = SocketAddress::abstract(name);
    if (name.empty() || !address) return {};
    for (const auto end = Clock::now() + patience; Clock::now() < end; rest()) {
        Descriptor link = newSocket();
        if (!link) return {};
        if (::connect(link.get(), address->get(), address->length) == 0) {
            const auto peer = peerOf(link);
            if (!peer || peer->uid != ::geteuid()) return {};
            if (introduce(link, join)) return {std::move(link), Descriptor()};
            if (errno != ECONNRESET) return {};
            continue; // its last task was over at this moment
        }
        if (errno == EAGAIN) continue; // too many others wait
        if (errno != ECONNREFUSED) return {};
        if (Descriptor listener = listenerAt(*address)) return {Descriptor(), std::move(listener)};
        // Another one was faster, and may not listen yet.
        if (errno != EADDRINUSE) return {};
    }
    return {};
}

bool NodeDoor::introduce(const Descriptor& link, const KeeperJoin& join) {
    ::fcntl(link.get(), F_SETFL, 0);
    const timeval time{std::chrono::seconds(patience).count(), 0};
    ::setsockopt(link.get(), SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
    if (!DescriptorPassing::send(link.get(), join.record().frames(), {})) {
        errno = ECONNRESET;
        return false;
    }
    // No byte of what comes behind it is taken.
    const std::string welcome = AgentRecord{AgentRecord::WELCOME, ""}.frames();
    std::string answer;
    while (answer.size() < welcome.size()) {
        std::array<char, 64> piece;
        const ssize_t got = ::recv(link.get(), piece.data(),
                                   std::min(piece.size(), welcome.size() - answer.size()), 0);
        if (got == -1 && errno == EINTR) continue;
        if (got <= 0) {
            errno = ECONNRESET;
            return false;
        }
        answer.append(piece.data(), static_cast<std::size_t>(got));
    }
    return answer == welcome;
}

std::optional<ucred> NodeDoor::peerOf(const Descriptor& socket) {
    ucred peer{};
    socklen_t length = sizeof peer;
    if (::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) == -1)
        return std::nullopt;
    return peer;
}

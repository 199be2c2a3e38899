#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <sys/socket.h>

/// Where a stream socket listens. A value.
struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t length = 0;

    /// A local socket without a file (unix(7), abstract); nothing when the name is too long.
    static std::optional<SocketAddress> abstract(std::string_view name);
    /// An IPv4 or IPv6 address in figures; nothing for another text.
    static std::optional<SocketAddress> internet(const std::string& figures, int port);
    /// All addresses of this machine, of both versions of IP or of the older one; any free port.
    static SocketAddress anywhere(int family);

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    int family() const { return storage.ss_family; }
};

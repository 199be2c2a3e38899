#include "backend/os/socketaddress.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/un.h>

namespace {

template <typename Address>
SocketAddress wrapped(const Address& address, socklen_t length = sizeof(Address)) {
    SocketAddress result;
    std::memcpy(&result.storage, &address, sizeof address);
    result.length = length;
    return result;
}

} // namespace

std::optional<SocketAddress> SocketAddress::abstract(std::string_view name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.size() + 1 > sizeof address.sun_path) return std::nullopt;
    std::copy(name.begin(), name.end(), address.sun_path + 1);
    return wrapped(address,
                   static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size()));
}

std::optional<SocketAddress> SocketAddress::internet(const std::string& figures, int port) {
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::inet_pton(AF_INET, figures.c_str(), &four.sin_addr) == 1) return wrapped(four);
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(static_cast<std::uint16_t>(port));
    // "fe80::1%eth0": such an address needs its interface.
    const std::size_t percent = figures.find('%');
    if (percent != std::string::npos)
        six.sin6_scope_id = ::if_nametoindex(figures.c_str() + percent + 1);
    if (::inet_pton(AF_INET6, figures.substr(0, percent).c_str(), &six.sin6_addr) == 1)
        return wrapped(six);
    return std::nullopt;
}

SocketAddress SocketAddress::anywhere(int family) {
    if (family == AF_INET) return *internet("0.0.0.0", 0);
    return *internet("::", 0);
}

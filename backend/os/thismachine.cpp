#include "backend/os/thismachine.h"

#include <climits>

#include <arpa/inet.h>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <unistd.h>

namespace {

// Empty for an address of another family than IP.
std::string figuresOf(const sockaddr& address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address.sa_family == AF_INET) {
        sockaddr_in four;
        std::memcpy(&four, &address, sizeof four);
        ::inet_ntop(AF_INET, &four.sin_addr, text, sizeof text);
    } else if (address.sa_family == AF_INET6) {
        sockaddr_in6 six;
        std::memcpy(&six, &address, sizeof six);
        ::inet_ntop(AF_INET6, &six.sin6_addr, text, sizeof text);
    }
    return text;
}

bool isLinkLocal(const sockaddr& address) {
    sockaddr_in6 six;
    if (address.sa_family != AF_INET6) return false;
    std::memcpy(&six, &address, sizeof six);
    return IN6_IS_ADDR_LINKLOCAL(&six.sin6_addr);
}

} // namespace

std::string ThisMachine::hostName() {
    char name[HOST_NAME_MAX + 1] = "";
    ::gethostname(name, sizeof name - 1);
    return name;
}

std::vector<ThisMachine::Address> ThisMachine::addresses() {
    std::vector<Address> found;
    ifaddrs* all = nullptr;
    if (::getifaddrs(&all) == -1) return found;
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(all, ::freeifaddrs);
    for (const ifaddrs* each = all; each; each = each->ifa_next) {
        if (!each->ifa_addr) continue;
        const std::string figures = figuresOf(*each->ifa_addr);
        if (figures.empty()) continue;
        found.push_back({each->ifa_name, figures, (each->ifa_flags & IFF_UP) != 0,
                         (each->ifa_flags & IFF_LOOPBACK) != 0, isLinkLocal(*each->ifa_addr)});
    }
    return found;
}

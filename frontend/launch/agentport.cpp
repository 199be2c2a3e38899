#include "frontend/launch/agentport.h"

#include "backend/wire/handshake.h"
#include "common/brokenconnection.h"

#include <asio/ip/address.hpp>
#include <asio/ip/v6_only.hpp>

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr auto silence = std::chrono::seconds(5);

// The networks of this machine's own containers and virtual machines, which no other one reaches.
bool isInternal(const std::string& interface) {
    for (const char* prefix : {"docker", "br-", "virbr", "veth", "lxc", "cni", "podman"}) {
        if (interface.starts_with(prefix)) return true;
    }
    return false;
}

// What other machines can reach this one by; its own loopback only when there is nothing else.
std::vector<std::string> ownAddresses() {
    std::vector<std::string> found, internal;
    ifaddrs* all = nullptr;
    if (::getifaddrs(&all) == -1) all = nullptr;
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(all, ::freeifaddrs);
    for (const ifaddrs* each = all; each; each = each->ifa_next) {
        if (!each->ifa_addr || !(each->ifa_flags & IFF_UP) || (each->ifa_flags & IFF_LOOPBACK))
            continue;
        if (each->ifa_addr->sa_family == AF_INET) {
            const auto* address = reinterpret_cast<const sockaddr_in*>(each->ifa_addr);
            (isInternal(each->ifa_name) ? internal : found)
                .push_back(asio::ip::address_v4(ntohl(address->sin_addr.s_addr)).to_string());
        } else if (each->ifa_addr->sa_family == AF_INET6) {
            const auto* address = reinterpret_cast<const sockaddr_in6*>(each->ifa_addr);
            asio::ip::address_v6::bytes_type bytes;
            std::copy(std::begin(address->sin6_addr.s6_addr), std::end(address->sin6_addr.s6_addr),
                      bytes.begin());
            const asio::ip::address_v6 plain(bytes);
            if (!plain.is_link_local())
                (isInternal(each->ifa_name) ? internal : found).push_back(plain.to_string());
        }
    }
    found.insert(found.end(), internal.begin(), internal.end());
    if (found.empty()) found.push_back("127.0.0.1");
    return found;
}

} // namespace

AgentPort::AgentPort(asio::io_context& eventLoop, bool withLocal, Arrived handler)
    : loop(eventLoop),
      arrived(std::move(handler)),
      local(loop),
      tcp(loop),
      localPause(loop),
      tcpPause(loop) {
    where.secret = Rendezvous::newSecret();
    if (withLocal) {
        // An abstract name leaves no file behind. It is no secret, so it needs none of ours.
        where.socketName = "vex-agents-" + Rendezvous::newSecret().substr(0, 16);
        local.open();
        ::fcntl(local.native_handle(), F_SETFD, FD_CLOEXEC);
        local.bind(Local::endpoint(std::string(1, '\0') + where.socketName));
        local.listen();
        accept(local, localPause);
    }
    openTcp();
    ::fcntl(tcp.native_handle(), F_SETFD, FD_CLOEXEC);
    tcp.listen();
    where.port = tcp.local_endpoint().port();
    where.addresses = ownAddresses();
    accept(tcp, tcpPause);
}

// Both versions of IP, or what this machine has.
void AgentPort::openTcp() {
    asio::error_code fault;
    tcp.open(Tcp::v6(), fault);
    if (!fault) tcp.set_option(asio::ip::v6_only(false), fault);
    if (!fault) tcp.bind({Tcp::v6(), 0}, fault);
    if (!fault) return;
    tcp.close(fault);
    tcp.open(Tcp::v4());
    tcp.bind({Tcp::v4(), 0});
}

template <typename Acceptor>
void AgentPort::accept(Acceptor& acceptor, asio::steady_timer& pause) {
    acceptor.async_accept([this, &acceptor, &pause](const asio::error_code& fault, auto socket) {
        if (fault == asio::error::operation_aborted || !acceptor.is_open()) return;
        if (!fault) {
            take(std::move(socket));
            return accept(acceptor, pause);
        }
        // No descriptors are left, say: whoever waits goes on waiting.
        pause.expires_after(std::chrono::milliseconds(100));
        pause.async_wait([this, &acceptor, &pause](const asio::error_code&) {
            if (acceptor.is_open()) accept(acceptor, pause);
        });
    });
}

void AgentPort::take(AgentLink::Socket socket) {
    if (pending.size() >= most) return;
    auto link = std::make_shared<AgentLink>(std::move(socket), AgentRecord::largestHello);
    AgentLink* const key = link.get();
    const long user = link->peerUser();
    auto& waiting =
        pending.emplace(key, Pending{link, asio::steady_timer(loop, silence), {}}).first->second;
    waiting.patience.async_wait([link](const asio::error_code& fault) {
        if (!fault) link->close();
    });
    link->start({[this, key](const AgentRecord& record) { onRecord(key, record); },
                 [this, key] { pending.erase(key); },
                 {},
                 {}});
    if (user != -1 && user != static_cast<long>(::geteuid())) link->close();
}

void AgentPort::onRecord(AgentLink* from, const AgentRecord& record) {
    const auto at = pending.find(from);
    if (at == pending.end()) throw BrokenConnection(); // it came through and may not talk yet
    Pending& waiting = at->second;
    if (waiting.nonce.empty()) {
        AgentHello::of(record);
        waiting.hello = record;
        waiting.nonce = Rendezvous::newSecret();
        waiting.link->send(
            AgentChallenge{waiting.nonce, Handshake::proof(Handshake::FRONT_END, where.secret,
                                                           record.body, waiting.nonce)}
                .record());
        return;
    }
    const std::string proof =
        Handshake::proof(Handshake::AGENT, where.secret, waiting.hello.body, waiting.nonce);
    if (record.type != AgentRecord::PROOF || !Handshake::equal(record.body, proof))
        throw BrokenConnection();
    const AgentHello hello = AgentHello::of(waiting.hello);
    const auto link = waiting.link;
    pending.erase(at);
    link->setHandler({[](const AgentRecord&) {}, [] {}, {}, {}}, AgentRecord::largest);
    arrived(hello, link);
}

void AgentPort::close() {
    asio::error_code fault;
    local.close(fault);
    tcp.close(fault);
    const auto dropped = std::exchange(pending, {});
    for (const auto& [key, each] : dropped) {
        each.link->setHandler({[](const AgentRecord&) {}, [] {}, {}, {}}, 0);
        each.link->close();
    }
}

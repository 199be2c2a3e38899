#include "frontend/launch/agentport.h"

#include "backend/os/limits.h"
#include "backend/os/socketaddress.h"
#include "backend/os/thismachine.h"
#include "backend/wire/handshake.h"
#include "common/brokenconnection.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <netinet/in.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

// A peer that has not introduced itself by then is dropped.
constexpr auto maxSilence = std::chrono::seconds(5);
// One that has, and has not proved itself by then. An agent on a node that has no time for it
// believes itself connected once it has sent its proof, and does not try again.
constexpr auto maxDelay = std::chrono::seconds(30);

// The networks of this machine's own containers and virtual machines, which no other one reaches.
bool isInternal(const std::string& interface) {
    for (const char* prefix : {"docker", "br-", "virbr", "veth", "lxc", "cni", "podman"}) {
        if (interface.starts_with(prefix)) return true;
    }
    return false;
}

// The addresses by which other machines can reach this one; its loopback only when it has no other.
std::vector<std::string> reachableAddresses() {
    std::vector<std::string> found, internal;
    for (const ThisMachine::Address& each : ThisMachine::addresses()) {
        if (each.up && !each.loopback && !each.linkLocal)
            (isInternal(each.interface) ? internal : found).push_back(each.figures);
    }
    found.insert(found.end(), internal.begin(), internal.end());
    if (found.empty()) found.push_back("127.0.0.1");
    return found;
}

[[noreturn]] void fail(const char* call) {
    throw std::system_error(errno, std::generic_category(), call);
}

// A socket that does not block, at an address of its own.
Descriptor boundTo(const SocketAddress& address) {
    Descriptor socket(::socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) fail("socket");
    const int off = 0;
    if (address.family() == AF_INET6 &&
        ::setsockopt(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off) == -1)
        fail("setsockopt");
    if (::bind(socket.get(), address.get(), address.length) == -1) fail("bind");
    return socket;
}

// Of the peer of a socket, as Strangers has it. Who has an address of IPv6 has a network of them.
std::string sourceOf(const Descriptor& socket) {
    sockaddr_storage peer{};
    socklen_t length = sizeof peer;
    if (::getpeername(socket.get(), reinterpret_cast<sockaddr*>(&peer), &length) == -1) return "?";
    if (peer.ss_family == AF_UNIX) return "";
    if (peer.ss_family == AF_INET) {
        const auto& address = reinterpret_cast<const sockaddr_in&>(peer).sin_addr;
        return std::string(reinterpret_cast<const char*>(&address), sizeof address);
    }
    const auto& address = reinterpret_cast<const sockaddr_in6&>(peer).sin6_addr;
    return std::string(reinterpret_cast<const char*>(&address),
                       IN6_IS_ADDR_V4MAPPED(&address) ? sizeof address : sizeof address / 2);
}

// Strangers leave descriptors for others.
Strangers::Room room() {
    Strangers::Room most;
    const rlim_t descriptors = Limits::facts().descriptors;
    most.remote = std::min<rlim_t>(most.remote, descriptors / 4);
    most.silent = std::min(most.silent, most.remote);
    return most;
}

} // namespace

AgentPort::AgentPort(EventLoop& eventLoop, bool withLocal, Owner& whose)
    : loop(eventLoop), owner(whose), local(loop), tcp(loop), order(room()) {
    where.secret = Rendezvous::newSecret();
    where.nodeName = Rendezvous::nodeNameOf(where.secret);
    if (withLocal) {
        // An abstract name leaves no file behind. It is no secret, so it needs none of ours.
        where.socketName = "vex-agents-" + Rendezvous::newSecret().substr(0, 16);
        local.socket = boundTo(*SocketAddress::abstract(where.socketName));
        listen(local);
    }
    openTcp();
    listen(tcp);
    where.addresses = reachableAddresses();
}

// Both versions of IP, or what this machine has.
void AgentPort::openTcp() {
    try {
        tcp.socket = boundTo(SocketAddress::anywhere(AF_INET6));
    } catch (const std::system_error&) {
        tcp.socket = boundTo(SocketAddress::anywhere(AF_INET));
    }
    sockaddr_storage own{};
    socklen_t length = sizeof own;
    ::getsockname(tcp.socket.get(), reinterpret_cast<sockaddr*>(&own), &length);
    // Addresses of both versions have the port at the same place.
    where.port = ntohs(reinterpret_cast<const sockaddr_in&>(own).sin_port);
}

void AgentPort::listen(Door& door) {
    if (::listen(door.socket.get(), SOMAXCONN) == -1) fail("listen");
    door.stream.watch(door.socket.get());
    accept(door);
}

void AgentPort::accept(Door& door) {
    door.stream.whenReadable([this, &door] {
        Descriptor socket(::accept4(door.socket.get(), nullptr, nullptr, SOCK_CLOEXEC));
        const bool gone = !socket && (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED);
        const bool came = static_cast<bool>(socket);
        if (came) take(std::move(socket));
        if (!door.stream.watching()) return;
        if (came || gone || makeRoom()) return accept(door);
        door.pause.after(std::chrono::milliseconds(100), [this, &door] { accept(door); });
    });
}

// No descriptors are left, say, which strangers may have. Else peers that wait go on waiting.
bool AgentPort::makeRoom() {
    if (const auto stranger = order.next()) {
        drop(*stranger);
        return true;
    }
    if (!std::exchange(full, true)) owner.onFull();
    return false;
}

void AgentPort::take(Descriptor socket) {
    const std::string source = sourceOf(socket);
    const auto link = std::make_shared<AgentLink>(loop, std::move(socket), AgentRecord::maxHello);
    const long user = link->peerUser();
    if (user != -1 && user != static_cast<long>(::geteuid())) return link->close();
    const Strangers::Number number = order.come(source);
    link->start(strangers.try_emplace(number, *this, link, number).first->second);
    if (const auto surplus = order.surplus()) drop(*surplus);
}

void AgentPort::drop(Strangers::Number stranger) {
    const std::shared_ptr<AgentLink> link = strangers.at(stranger).link;
    link->setHandler(nullptr, 0);
    link->close();
    order.leave(stranger);
    strangers.erase(stranger);
}

// Ends the stranger, which may still be in its call of this.
void AgentPort::admit(const Stranger& agent) {
    const AgentHello hello = AgentHello::of(agent.hello);
    const std::shared_ptr<AgentLink> link = agent.link;
    const Strangers::Number number = agent.number;
    order.leave(number);
    strangers.erase(number);
    link->setHandler(nullptr, AgentRecord::maxFrame);
    owner.onHello(hello, link);
}

void AgentPort::close() {
    for (Door* door : {&local, &tcp}) {
        door->pause.cancel();
        door->stream.release();
        door->socket.reset();
    }
    for (const auto& [key, stranger] : std::exchange(strangers, {})) {
        stranger.link->setHandler(nullptr, 0);
        stranger.link->close();
    }
}

AgentPort::Stranger::Stranger(AgentPort& ofPort, std::shared_ptr<AgentLink> ofPeer,
                              Strangers::Number ofOrder)
    : link(std::move(ofPeer)), number(ofOrder), port(ofPort), patience(port.loop) {
    patience.after(maxSilence, [peer = link] { peer->close(); });
}

void AgentPort::Stranger::onRecord(const AgentRecord& record) {
    if (nonce.empty()) return challenge(record);
    const std::string proof =
        Handshake::proof(Handshake::AGENT, port.where.secret, hello.body, nonce);
    if (record.type != AgentRecord::PROOF || !Handshake::equal(record.body, proof))
        throw BrokenConnection();
    port.admit(*this);
}

// Ends this.
void AgentPort::Stranger::onClosed() {
    AgentPort& its = port;
    const Strangers::Number own = number;
    its.order.leave(own);
    its.strangers.erase(own);
}

void AgentPort::Stranger::challenge(const AgentRecord& record) {
    AgentHello::of(record); // throws when it is none
    hello = record;
    port.order.spoke(number);
    patience.after(maxDelay, [peer = link] { peer->close(); });
    nonce = Rendezvous::newSecret();
    const std::string proof =
        Handshake::proof(Handshake::FRONT_END, port.where.secret, hello.body, nonce);
    link->send(AgentChallenge{nonce, proof}.record());
}

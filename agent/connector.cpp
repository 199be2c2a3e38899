#include "agent/connector.h"

#include "backend/os/thismachine.h"
#include "backend/wire/handshake.h"
#include "common/brokenconnection.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr auto maxTries = std::chrono::seconds(30);
constexpr auto pauseBetween = std::chrono::milliseconds(200);

} // namespace

Connector::Connector(EventLoop& eventLoop, const Rendezvous& where, AgentHello introduction,
                     Owner& whose)
    : loop(eventLoop),
      secret(where.secret),
      hello(std::move(introduction)),
      owner(whose),
      end(Clock::now() + maxTries),
      patience(loop),
      pause(loop),
      stream(loop) {
    hello.host = ThisMachine::hostName();
    std::optional<SocketAddress> address;
    if (!where.socketName.empty() && (address = SocketAddress::abstract(where.socketName)))
        candidates.push_back(*address);
    for (const std::string& figures : where.addresses) {
        if ((address = SocketAddress::internet(figures, where.port)))
            candidates.push_back(*address);
    }
    connect();
}

Connector::~Connector() {
    if (!link) return;
    link->setHandler(nullptr, 0);
    link->close();
}

void Connector::connect() {
    link.reset();
    if (nextCandidate == candidates.size()) {
        if (std::exchange(busy, false) && Clock::now() < end) {
            nextCandidate = 0;
            return pause.after(pauseBetween, [this] { connect(); });
        }
        // In a later turn: the owner may still be constructing this.
        pause.after(Clock::duration::zero(), [this, text = problem] { owner.onUnreachable(text); });
        return;
    }
    const SocketAddress& candidate = candidates[nextCandidate++];
    socket.reset(::socket(candidate.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) return tryNext(std::strerror(errno));
    patience.after(std::chrono::seconds(3), [this] {
        busy = true;
        tryNext("no answer");
    });
    knock(candidate);
}

void Connector::knock(const SocketAddress& candidate) {
    if (::connect(socket.get(), candidate.get(), candidate.length) == 0) return whenConnected();
    if (errno == EINPROGRESS || errno == EINTR) {
        stream.watch(socket.get());
        stream.whenWritable([this] { whenConnected(); });
    } else if (errno == EAGAIN) {
        // Too many other agents wait at the local socket.
        pause.after(std::chrono::milliseconds(20), [this, &candidate] { knock(candidate); });
    } else {
        tryNext(std::strerror(errno));
    }
}

void Connector::tryNext(const std::string& why) {
    problem = why;
    patience.cancel();
    pause.cancel();
    stream.release();
    socket.reset();
    connect();
}

void Connector::whenConnected() {
    int fault = 0;
    socklen_t length = sizeof fault;
    ::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &fault, &length);
    if (fault != 0) return tryNext(std::strerror(fault));
    patience.cancel();
    stream.release();
    introduce();
}

void Connector::introduce() {
    link = std::make_shared<AgentLink>(loop, std::move(socket), AgentRecord::maxHello);
    const long user = link->peerUser();
    if (user != -1 && user != static_cast<long>(::geteuid()) && user != 0) {
        problem = "another user listens at the front end's socket";
        nextCandidate = candidates.size();
        return connect();
    }
    link->start(*this);
    hello.nonce = Rendezvous::newSecret();
    greeting = hello.record();
    link->send(greeting);
    patience.after(std::chrono::seconds(5), [weak = std::weak_ptr(link)] {
        if (const auto silent = weak.lock()) silent->close();
    });
}

// A peer that closes before it has proved itself was not the front end: another process may have
// the front end's port on another machine.
void Connector::onClosed() {
    patience.cancel();
    problem = "another program listens there, not the front end";
    // The front end drops agents, too, when it cannot keep all that come.
    busy = !std::exchange(lied, false) || busy;
    connect();
}

// The challenge. Nothing is done for a peer that has not shown that it knows the secret.
void Connector::onRecord(const AgentRecord& record) {
    lied = true; // unless it comes through this
    const AgentChallenge challenge = AgentChallenge::of(record);
    if (!Handshake::equal(challenge.proof, Handshake::proof(Handshake::FRONT_END, secret,
                                                            greeting.body, challenge.nonce)))
        throw BrokenConnection();
    patience.cancel();
    link->send({AgentRecord::PROOF,
                Handshake::proof(Handshake::AGENT, secret, greeting.body, challenge.nonce)});
    owner.onConnected(std::exchange(link, nullptr));
}

#include "agent/connector.h"

#include "backend/wire/handshake.h"
#include "common/brokenconnection.h"

#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <climits>

#include <chrono>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

Connector::Connector(asio::io_context& eventLoop, const Rendezvous& where, AgentHello introduction,
                     Handler handler)
    : loop(eventLoop),
      secret(where.secret),
      hello(std::move(introduction)),
      handle(std::move(handler)),
      patience(loop) {
    char name[HOST_NAME_MAX + 1] = "";
    ::gethostname(name, sizeof name - 1);
    hello.host = name;
    hello.pid = ::getpid();
    if (!where.socketName.empty())
        candidates.emplace_back(
            asio::local::stream_protocol::endpoint(std::string(1, '\0') + where.socketName));
    for (const std::string& address : where.addresses) {
        asio::error_code fault;
        const auto number = asio::ip::make_address(address, fault);
        if (!fault)
            candidates.emplace_back(
                asio::ip::tcp::endpoint(number, static_cast<asio::ip::port_type>(where.port)));
    }
    connect();
}

Connector::~Connector() {
    if (!link) return;
    link->setHandler({}, 0);
    link->close();
}

void Connector::connect() {
    link.reset();
    if (nextCandidate == candidates.size()) {
        asio::post(loop, [failed = handle.failed, text = problem] { failed(text); });
        return;
    }
    const auto& candidate = candidates[nextCandidate++];
    socket.emplace(loop);
    asio::error_code fault;
    socket->open(candidate.protocol(), fault);
    if (fault) {
        problem = fault.message();
        return connect();
    }
    ::fcntl(socket->native_handle(), F_SETFD, FD_CLOEXEC);
    patience.expires_after(std::chrono::seconds(3));
    patience.async_wait([this](const asio::error_code& cancelled) {
        asio::error_code ignored;
        if (!cancelled) socket->close(ignored);
    });
    socket->async_connect(candidate, [this](const asio::error_code& failure) {
        patience.cancel();
        if (!failure && socket->is_open()) return introduce();
        problem = failure == asio::error::operation_aborted ? "no answer" : failure.message();
        connect();
    });
}

void Connector::introduce() {
    link = std::make_shared<AgentLink>(std::move(*socket), AgentRecord::largest);
    const long user = link->peerUser();
    if (user != -1 && user != static_cast<long>(::geteuid()) && user != 0) {
        problem = "another user listens at the front end's socket";
        nextCandidate = candidates.size();
        return connect();
    }
    // Whoever closes before it has proved itself was not the front end: somebody may have its port
    // on another machine.
    link->start({[this](const AgentRecord& record) { onChallenge(record); },
                 [this] {
                     patience.cancel();
                     problem = "who listens there is not the front end";
                     connect();
                 },
                 {},
                 {}});
    hello.nonce = Rendezvous::newSecret();
    greeting = hello.record();
    link->send(greeting);
    patience.expires_after(std::chrono::seconds(5));
    patience.async_wait([weak = std::weak_ptr(link)](const asio::error_code& cancelled) {
        const auto silent = weak.lock();
        if (!cancelled && silent) silent->close();
    });
}

// Nothing is done for anybody who has not shown to know the secret.
void Connector::onChallenge(const AgentRecord& record) {
    const AgentChallenge challenge = AgentChallenge::of(record);
    if (!Handshake::equal(challenge.proof, Handshake::proof(Handshake::FRONT_END, secret,
                                                            greeting.body, challenge.nonce)))
        throw BrokenConnection();
    patience.cancel();
    link->send({AgentRecord::PROOF,
                Handshake::proof(Handshake::AGENT, secret, greeting.body, challenge.nonce)});
    handle.arrived(std::exchange(link, nullptr));
}

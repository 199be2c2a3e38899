#include "agent/agent.h"

#include "common/brokenconnection.h"
#include "frontend/executables.h"
#include "frontend/handshake.h"
#include "frontend/identity.h"
#include "frontend/processtree.h"
#include "frontend/tracing.h"

#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <climits>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

Agent::Agent(Rendezvous rendezvous, Place task)
    : where(std::move(rendezvous)),
      place(task),
      signals(loop, SIGCHLD, SIGTERM, SIGINT),
      patience(loop) {
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
}

int Agent::run() {
    signals.add(SIGHUP);
    awaitSignals();
    connect();
    loop.run();
    return status;
}

void Agent::awaitSignals() {
    signals.async_wait([this](const asio::error_code& fault, int number) {
        if (fault) return;
        if (number != SIGCHLD) return end(0);
        onChild();
        awaitSignals();
    });
}

// Tries one address after the other.
void Agent::connect() {
    if (nextCandidate == candidates.size()) {
        std::fprintf(stderr, "vexagent: cannot connect to the front end: %s\n", problem.c_str());
        return end(1);
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

void Agent::introduce() {
    link = std::make_shared<AgentLink>(std::move(*socket), AgentRecord::largest);
    const long user = link->peerUser();
    if (user != -1 && user != static_cast<long>(::geteuid()) && user != 0) {
        std::fprintf(stderr, "vexagent: another user listens at the front end's socket\n");
        return end(1);
    }
    link->start({[this](const AgentRecord& record) { onRecord(record); },
                 [this] { onClosed(); },
                 {},
                 [this] {
                     if (client) client->resume();
                 }});
    AgentHello hello;
    hello.nonce = Rendezvous::newSecret();
    hello.rank = place.rank;
    hello.size = place.size;
    char name[HOST_NAME_MAX + 1] = "";
    ::gethostname(name, sizeof name - 1);
    hello.host = name;
    hello.pid = ::getpid();
    greeting = hello.record();
    link->send(greeting);
    patience.expires_after(std::chrono::seconds(5));
    patience.async_wait([weak = std::weak_ptr(link)](const asio::error_code& cancelled) {
        const auto silent = weak.lock();
        if (!cancelled && silent) silent->close();
    });
}

// Nothing is done for anybody who has not shown to know the secret.
void Agent::onChallenge(const AgentRecord& record) {
    const AgentChallenge challenge = AgentChallenge::of(record);
    if (!Handshake::equal(challenge.proof, Handshake::proof(Handshake::FRONT_END, where.secret,
                                                            greeting.body, challenge.nonce)))
        throw BrokenConnection();
    patience.cancel();
    trusted = true;
    link->send({AgentRecord::PROOF,
                Handshake::proof(Handshake::AGENT, where.secret, greeting.body, challenge.nonce)});
}

// Whoever was there, it was not the front end: somebody may have its port on another machine.
void Agent::onClosed() {
    if (trusted) return end(0);
    patience.cancel();
    problem = "who listens there is not the front end";
    connect();
}

void Agent::onRecord(const AgentRecord& record) {
    if (!trusted) return onChallenge(record);
    switch (record.type) {
    case AgentRecord::START:
        if (client) throw BrokenConnection();
        start(AgentRecords::startOf(record));
        break;
    case AgentRecord::TYPE:
        if (client && client->running()) client->type(record.body);
        break;
    case AgentRecord::INTERRUPT:
        if (client) client->interrupt();
        break;
    case AgentRecord::WHO:
        tellIdentity();
        break;
    default:
        throw BrokenConnection();
    }
}

void Agent::start(DebuggerStart start) {
    if (!start.folder.empty() && ::chdir(start.folder.c_str()) == -1)
        say("cannot go to the directory " + start.folder + " there: " + std::strerror(errno));
    // The launcher may have left the task a descriptor to talk to it by.
    start.inherits = true;
    try {
        if (!Tracing::works())
            throw std::runtime_error("tracing processes (ptrace) is refused there");
        start.argv.at(0) = Executables::debugger(start.argv.at(0));
        client = std::make_unique<LocalClient>(
            loop,
            Client::Handler{[this](std::string_view text) {
                                link->send({AgentRecord::OUTPUT, std::string(text)});
                            },
                            [this] {
                                link->send({AgentRecord::PROMPT, ""});
                            },
                            [this] { return !link->congested(); }},
            start);
    } catch (const std::exception& error) {
        say(std::string("cannot start the debugger: ") + error.what());
        link->send({AgentRecord::ENDED, ""});
    }
}

void Agent::tellIdentity() {
    Identity task = Identity::underDebugger(client && client->running() ? client->pid() : -1);
    if (task.rank.empty()) task.rank = std::to_string(place.rank);
    link->send({AgentRecord::IDENTITY, task.str()});
}

void Agent::onChild() {
    const bool ended = client && client->ended();
    if (ended) {
        // What its program has started and left behind ends with it.
        ProcessTree::killDescendants(::getpid(), -1);
        link->send({AgentRecord::ENDED, ""});
    }
    std::vector<pid_t> known;
    if (client && client->running()) known.push_back(client->pid());
    ProcessTree::reapStrangers(known);
}

void Agent::say(const std::string& text) { link->send({AgentRecord::OUTPUT, text + "\n"}); }

void Agent::end(int exitStatus) {
    status = exitStatus;
    ProcessTree::killDescendants(::getpid(), -1);
    loop.stop();
}

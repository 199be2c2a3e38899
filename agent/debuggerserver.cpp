#include "agent/debuggerserver.h"

#include "backend/clients/identity.h"
#include "backend/os/executables.h"
#include "backend/os/processtree.h"
#include "backend/os/tracing.h"
#include "common/brokenconnection.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <unistd.h>
#include <utility>

DebuggerServer::DebuggerServer(EventLoop& eventLoop, int ownNumber, const Rendezvous& where,
                               const AgentHello& hello, Owner& whose)
    : loop(eventLoop),
      number(ownNumber),
      rank(hello.rank),
      forked(hello.forked),
      owner(whose),
      connector(
          std::make_unique<Connector>(loop, where, hello, static_cast<Connector::Owner&>(*this))) {}

DebuggerServer::~DebuggerServer() {
    if (!link) return;
    link->setHandler(nullptr, 0);
    link->close();
}

void DebuggerServer::onConnected(std::shared_ptr<AgentLink> connected) {
    link = std::move(connected);
    link->setHandler(this, AgentRecord::maxFrame);
}

void DebuggerServer::onClosed() {
    link.reset();
    owner.onOver(number, "");
}

void DebuggerServer::onDrained() {
    if (client) client->resume();
}

void DebuggerServer::onRecord(const AgentRecord& record) {
    switch (record.type) {
    case AgentRecord::START:
        if (client) throw BrokenConnection();
        start(AgentRecords::startOf(record));
        break;
    case AgentRecord::TYPE:
        if (running()) client->type(record.body);
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

void DebuggerServer::start(DebuggerStart start) {
    if (!start.folder.empty() && ::chdir(start.folder.c_str()) == -1)
        send(AgentRecord::OUTPUT, "cannot go to the directory " + start.folder +
                                      " there: " + std::strerror(errno) + "\n");
    // The launcher may have left the task a descriptor to talk to it by.
    start.inherits = start.attach == 0;
    if (start.throughShells) start.attach = ProcessTree::programOf(start.attach);
    target = start.attach;
    sessionNumber = start.client;
    owner.onStart(number, start);
    try {
        if (target != 0)
            Tracing::checkAttach(target);
        else if (!Tracing::works())
            throw std::runtime_error("tracing processes (ptrace) is refused there");
        start.argv.at(0) = Executables::debugger(start.argv.at(0));
        client = std::make_unique<LocalClient>(loop, *this, start);
    } catch (const std::exception& error) {
        send(AgentRecord::OUTPUT, std::string("cannot start the debugger: ") + error.what() + "\n");
        if (forked != 0 && ProcessTree::parentOf(forked) != 0)
            tell("forked process " + std::to_string(forked) +
                 " runs on without a debugger: " + error.what());
        send(AgentRecord::ENDED, "");
        owner.onNoDebugger(number);
    }
}

void DebuggerServer::onOutput(int /*client*/, std::string_view text) {
    send(AgentRecord::OUTPUT, std::string(text));
    owner.onOutput(number, text);
}

bool DebuggerServer::mayRead(int /*client*/) { return !link || !link->congested(); }

void DebuggerServer::onPrompt(int /*client*/) {
    if (!std::exchange(prompted, true) && target != 0) {
        if (client->holds())
            send(AgentRecord::HOLDS, "");
        else if (forked != 0 && ProcessTree::parentOf(target) != 0)
            tell("forked process " + std::to_string(target) +
                 " runs on without a debugger: the debugger could not attach");
        owner.onAttachDone(number);
    }
    send(AgentRecord::PROMPT, "");
}

void DebuggerServer::onRuns(int /*client*/, bool runs) {
    send(runs ? AgentRecord::RUNS : AgentRecord::STANDS, "");
}

void DebuggerServer::tellIdentity() {
    Identity task = client ? client->who() : Identity::ofProcess(target != 0 ? target : -1);
    if (task.rank.empty() && target == 0) task.rank = std::to_string(rank);
    send(AgentRecord::IDENTITY, task.str());
}

bool DebuggerServer::ended() {
    if (!client || !client->ended()) return false;
    send(AgentRecord::ENDED, "");
    return true;
}

void DebuggerServer::release() {
    if (client) client->release();
}

void DebuggerServer::tell(const std::string& text) { send(AgentRecord::TELL, text); }

void DebuggerServer::send(AgentRecord::Type type, const std::string& body) {
    if (link) link->send({type, body});
}

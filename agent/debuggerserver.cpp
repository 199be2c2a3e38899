#include "agent/debuggerserver.h"

#include "backend/clients/identity.h"
#include "backend/os/processtree.h"
#include "common/brokenconnection.h"

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
        if (client || wanted) throw BrokenConnection();
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
    target = start.attach;
    sessionNumber = start.client;
    wanted = std::move(start);
    owner.onStart(number, *wanted);
}

void DebuggerServer::started(std::unique_ptr<DebuggerProcess> debugger, pid_t process,
                             const std::string& notice) {
    if (!notice.empty()) send(AgentRecord::OUTPUT, notice);
    wanted->attach = target = process;
    client = std::make_unique<LocalClient>(loop, *this, *wanted, std::move(debugger));
    wanted.reset();
}

void DebuggerServer::failed(const std::string& notice, const std::string& problem) {
    send(AgentRecord::OUTPUT, notice + "cannot start the debugger: " + problem + "\n");
    if (forked != 0 && ProcessTree::parentOf(forked) != 0)
        tell("forked process " + std::to_string(forked) +
             " runs on without a debugger: " + problem);
    send(AgentRecord::ENDED, "");
    owner.onNoDebugger(number);
}

void DebuggerServer::onOutput(int /*client*/, std::string_view text) {
    send(AgentRecord::OUTPUT, std::string(text));
    owner.onOutput(number, text);
}

bool DebuggerServer::mayRead(int /*client*/) { return !link || !link->congested(); }

void DebuggerServer::onPrompt(int /*client*/) {
    const bool first = !std::exchange(prompted, true);
    if (first && target != 0) {
        if (client->holds())
            send(AgentRecord::HOLDS, "");
        else if (forked != 0 && ProcessTree::parentOf(target) != 0)
            tell("forked process " + std::to_string(target) +
                 " runs on without a debugger: the debugger could not attach");
        owner.onAttachDone(number);
    }
    send(AgentRecord::PROMPT, "");
    if (first) owner.onPrompted(number);
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

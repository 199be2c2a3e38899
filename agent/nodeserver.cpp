#include "agent/nodeserver.h"

#include "backend/clients/identity.h"
#include "backend/os/executables.h"
#include "backend/os/processtree.h"
#include "backend/os/tracing.h"
#include "common/brokenconnection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <unistd.h>
#include <utility>

NodeServer::NodeServer(EventLoop& eventLoop, const Rendezvous& where,
                       std::vector<NodeRecords::Task> found, Owner& whose)
    : loop(eventLoop),
      tasks(std::move(found)),
      owner(whose),
      timer(loop),
      connector(std::make_unique<Connector>(loop, where, AgentHello(),
                                            static_cast<Connector::Owner&>(*this))) {}

NodeServer::~NodeServer() {
    if (!link) return;
    link->setHandler(nullptr, 0);
    link->close();
}

void NodeServer::onConnected(std::shared_ptr<AgentLink> connected) {
    link = std::move(connected);
    link->setHandler(this, AgentRecord::maxFrame);
    link->send(NodeRecords::tasks(tasks));
}

void NodeServer::onClosed() {
    link.reset();
    owner.onOver("");
}

void NodeServer::onDrained() {
    for (const auto& [id, debugger] : debuggers) {
        if (debugger.client) debugger.client->resume();
    }
}

// --- what the front end wants

void NodeServer::onRecord(const AgentRecord& record) {
    if (record.type == AgentRecord::START) return start(NodeRecords::startOf(record));
    if (!node) throw BrokenConnection();
    switch (record.type) {
    case AgentRecord::WHO:
        tellIdentities(NodeRecords::clientsOf(record, node->clients()));
        break;
    case AgentRecord::RELEASE:
        for (const int id : NodeRecords::clientsOf(record, node->clients())) {
            if (const auto& client = debuggers[id].client) client->release();
        }
        break;
    case AgentRecord::LEAVEFORK: {
        const pid_t process = NodeRecords::forkOf(record, node->clients()).process;
        offered.erase(process);
        owner.onForkLeft(process);
        break;
    }
    default:
        if (!node->take(record, Clock::now())) throw BrokenConnection();
        wait();
    }
}

void NodeServer::start(const NodeRecords::Start& wanted) {
    const DebuggerStart& common = wanted.common;
    if (!node) {
        const bool attach = std::ranges::any_of(
            wanted.clients, [](const auto& client) { return client.second != 0; });
        driver = makeDriver(common.dialect, attach);
        node.emplace(*driver, common.errorMark, static_cast<ServedNode::Outlet&>(*this));
    }
    std::string problem;
    if (!common.folder.empty() && ::chdir(common.folder.c_str()) == -1)
        problem = "cannot go to the directory " + common.folder +
                  " there: " + std::strerror(errno) + "\n";
    for (const auto& [id, process] : wanted.clients) {
        if (debuggers.contains(id)) throw BrokenConnection();
        startOne(common.with(id, process), problem);
    }
    wait();
}

void NodeServer::startOne(DebuggerStart start, const std::string& problem) {
    const int id = start.client;
    Debugger& debugger = debuggers[id];
    debugger.forked = offered.erase(start.attach) > 0;
    // The launcher may have left the task a descriptor to talk to it by.
    start.inherits = start.attach == 0;
    if (start.throughShells) start.attach = ProcessTree::programOf(start.attach);
    debugger.target = start.attach;
    if (!debugger.forked) attaching = start.attach != 0;
    node->add(id, !debugger.forked);
    if (!problem.empty()) node->output(id, problem, Clock::now());
    owner.onStart(start);
    try {
        if (debugger.target != 0)
            Tracing::checkAttach(debugger.target);
        else if (!Tracing::works())
            throw std::runtime_error("tracing processes (ptrace) is refused there");
        start.argv.at(0) = Executables::debugger(start.argv.at(0));
        debugger.client = std::make_unique<LocalClient>(loop, *this, start);
    } catch (const std::exception& error) {
        const Clock::time_point now = Clock::now();
        node->output(id, std::string("cannot start the debugger: ") + error.what() + "\n", now);
        if (debugger.forked && ProcessTree::parentOf(debugger.target) != 0)
            tell(id, "forked process " + std::to_string(debugger.target) +
                         " runs on without a debugger: " + error.what());
        node->ended(id, now);
        owner.onEnded(id);
    }
}

void NodeServer::tellIdentities(const ClientSet& clients) {
    NodeRecords::Notes notes;
    for (const int id : clients) {
        const Debugger& debugger = debuggers[id];
        Identity task = debugger.client
                            ? debugger.client->who()
                            : Identity::ofProcess(debugger.target != 0 ? debugger.target : -1);
        if (task.rank.empty() && debugger.target == 0) task.rank = std::to_string(id);
        notes.emplace_back(id, task.str());
    }
    send(NodeRecords::notes(AgentRecord::IDENTITY, notes));
}

void NodeServer::offer(const NodeRecords::Fork& fork) {
    offered.insert(fork.process);
    send(NodeRecords::fork(AgentRecord::FORKED, fork));
}

void NodeServer::toClient(int id, const std::string& line) {
    if (const auto& client = debuggers[id].client; client && client->running())
        client->type(driver->whole(line));
}

void NodeServer::interrupt(int id) {
    if (const auto& client = debuggers[id].client) client->interrupt();
}

// --- what the debuggers say

void NodeServer::onOutput(int id, std::string_view text) {
    node->output(id, text, Clock::now());
    wait();
    owner.onOutput(id, debuggers[id].client ? debuggers[id].client->pid() : -1, text);
}

bool NodeServer::mayRead(int /*client*/) { return !link || !link->congested(); }

void NodeServer::onPrompt(int id) {
    const Debugger& debugger = debuggers[id];
    const bool holds = debugger.target != 0 && node->starting(id) && debugger.client->holds();
    if (debugger.target != 0 && node->starting(id)) {
        if (!holds && debugger.forked && ProcessTree::parentOf(debugger.target) != 0)
            tell(id, "forked process " + std::to_string(debugger.target) +
                         " runs on without a debugger: the debugger could not attach");
        owner.onAttachDone(id);
    }
    node->prompted(id, holds, Clock::now());
    wait();
}

bool NodeServer::collect() {
    bool some = false;
    for (auto& [id, debugger] : debuggers) {
        if (!debugger.client || !debugger.client->ended()) continue;
        some = true;
        node->ended(id, Clock::now());
        owner.onEnded(id);
    }
    wait();
    return some;
}

void NodeServer::listPids(std::vector<pid_t>& pids) const {
    for (const auto& [id, debugger] : debuggers) {
        if (debugger.client && debugger.client->running()) pids.push_back(debugger.client->pid());
    }
}

bool NodeServer::running() const {
    return std::ranges::any_of(debuggers, [](const auto& each) {
        return each.second.client && each.second.client->running();
    });
}

void NodeServer::release() {
    for (const auto& [id, debugger] : debuggers) {
        if (debugger.client) debugger.client->release();
    }
}

void NodeServer::tell(int client, const std::string& text) {
    send(NodeRecords::notes(AgentRecord::TELL, {{client, text}}));
}

void NodeServer::send(const AgentRecord& record) {
    if (link) link->send(record);
}

void NodeServer::wait() {
    const auto due = node ? node->deadline() : std::nullopt;
    if (!due) return timer.cancel();
    timer.at(*due, [this] {
        node->tick(Clock::now());
        wait();
    });
}

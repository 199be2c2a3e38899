#include "agent/nodeserver.h"

#include "backend/clients/identity.h"
#include "backend/clients/mpireader.h"
#include "backend/os/processtree.h"
#include "backend/wire/mpirecords.h"
#include "common/brokenconnection.h"

#include <algorithm>
#include <utility>

NodeServer::NodeServer(EventLoop& eventLoop, const Rendezvous& where, Owner& whose)
    : loop(eventLoop),
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
    tellTasks();
}

void NodeServer::add(const NodeRecords::Task& task) {
    tasks.push_back(task);
    // Together with others that come at this moment.
    if (tasks.size() == 1) loop.post([this] { tellTasks(); });
}

void NodeServer::tellTasks() {
    if (link && !tasks.empty()) link->send(NodeRecords::tasks(std::exchange(tasks, {})));
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
    case AgentRecord::ASKMPI:
        tellMpiStates(NodeRecords::clientsOf(record, node->clients()));
        break;
    case AgentRecord::RELEASE:
        for (const int id : NodeRecords::clientsOf(record, node->clients())) {
            release(id);
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
        driver = makeDriver(common.dialect,
                            attach ? Driver::Subject::PROCESS : Driver::Subject::PROGRAM);
        node.emplace(*driver, common.errorMark, static_cast<ServedNode::Outlet&>(*this));
    }
    for (const auto& [id, process] : wanted.clients) {
        if (debuggers.contains(id)) throw BrokenConnection();
        const DebuggerStart one = common.with(id, process);
        Debugger& debugger = debuggers[id];
        debugger.wanted = one;
        debugger.target = process;
        debugger.forked = offered.erase(process) > 0;
        node->add(id, !debugger.forked);
        owner.onStart(one, debugger.forked);
    }
    wait();
}

void NodeServer::started(int id, std::unique_ptr<DebuggerProcess> process, pid_t target,
                         const std::string& notice) {
    Debugger& debugger = debuggers.at(id);
    if (!notice.empty()) node->output(id, notice, Clock::now());
    debugger.wanted->attach = debugger.target = target;
    debugger.client =
        std::make_unique<LocalClient>(loop, *this, *debugger.wanted, std::move(process));
    debugger.wanted.reset();
    wait();
}

void NodeServer::failed(int id, const std::string& notice, const std::string& problem) {
    Debugger& debugger = debuggers.at(id);
    node->output(id, notice + "cannot start the debugger: " + problem + "\n", Clock::now());
    if (debugger.forked && ProcessTree::parentOf(debugger.target) != 0)
        tell(id, "forked process " + std::to_string(debugger.target) +
                     " runs on without a debugger: " + problem);
    end(id, debugger);
}

void NodeServer::end(int id, Debugger& debugger) {
    debugger.ended = true;
    node->ended(id, Clock::now());
    wait();
    owner.onEnded(id);
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

void NodeServer::tellMpiStates(const ClientSet& clients) {
    MpiRecords::States states;
    for (const int id : clients) {
        const Debugger& debugger = debuggers[id];
        states.emplace_back(id, debugger.client ? debugger.client->mpiState()
                                                : MpiReader::stateOf(debugger.target));
    }
    send(MpiRecords::states(states));
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
    const bool first = node->starting(id);
    const bool holds = debugger.target != 0 && first && debugger.client->holds();
    if (debugger.forked && first && !holds && ProcessTree::parentOf(debugger.target) != 0)
        tell(id, "forked process " + std::to_string(debugger.target) +
                     " runs on without a debugger: the debugger could not attach");
    node->prompted(id, holds, Clock::now());
    wait();
    if (first) owner.onPrompted(id);
}

void NodeServer::look(int id) {
    Debugger& debugger = debuggers.at(id);
    if (!debugger.ended && debugger.client && debugger.client->ended()) end(id, debugger);
}

void NodeServer::lose(int id) {
    const auto at = debuggers.find(id);
    if (at == debuggers.end() || at->second.ended) return;
    // What its last words were may wait still.
    if (at->second.client) at->second.client->ended();
    at->second.client.reset();
    end(id, at->second);
}

void NodeServer::release(int id) {
    const auto at = debuggers.find(id);
    if (at != debuggers.end() && at->second.client) at->second.client->release();
}

void NodeServer::tell(int client, const std::string& text) {
    send(NodeRecords::notes(AgentRecord::TELL, {{client, text}}));
}

void NodeServer::finish() {
    if (!link) return owner.onOver("");
    if (node) node->flush(Clock::now());
    link->finish();
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

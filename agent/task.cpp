#include "agent/task.h"

#include "backend/os/processtree.h"
#include "backend/os/tracing.h"
#include "common/brokenconnection.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <unistd.h>
#include <utility>

namespace {

// At most this many forked processes of one task are debugged at a time.
constexpr std::size_t maxForks = 16;

} // namespace

Task::Task(const Node& shared, std::shared_ptr<AgentLink> toKeeper, pid_t keeperProcess,
           Owner& whose)
    : node(shared),
      link(std::move(toKeeper)),
      keeper(keeperProcess),
      owner(whose),
      detachment(node.loop, *this),
      watch(node.loop) {
    link->expectDescriptors();
    link->start(*this);
}

Task::~Task() {
    node.starts.forget(*this);
    link->setHandler(nullptr, 0);
    link->close();
}

// --- the keeper

void Task::onRecord(const AgentRecord& record) {
    if ((record.type == AgentRecord::JOIN) != (phase == JOINING)) throw BrokenConnection();
    switch (record.type) {
    case AgentRecord::JOIN:
        return join(record);
    case AgentRecord::STARTED:
    case AgentRecord::FAILED:
        return takeDebugger(KeeperStarted::of(record));
    case AgentRecord::GONE:
        return onGone(KeeperOrder::of(record).debugger);
    case AgentRecord::LEAVE:
        return end(0, "");
    default:
        throw BrokenConnection();
    }
}

void Task::join(const AgentRecord& record) {
    const KeeperJoin join = KeeperJoin::of(record);
    // Another number: it is of another name space of processes, where nothing can be done for it.
    if (join.protocol != KeeperJoin::version || join.pid != keeper)
        return link->send({AgentRecord::REFUSED, ""});
    phase = SERVING;
    link->send({AgentRecord::WELCOME, ""});
    jobSize = join.jobSize;
    AgentHello hello;
    hello.rank = join.rank;
    hello.size = jobSize;
    open(0, hello);
}

void Task::onClosed() {
    if (phase == JOINING || phase == FINISHED) return over();
    lose();
}

void Task::takeDebugger(const KeeperStarted& started) {
    const auto at = servers.find(started.debugger);
    DebuggerProcess::Terminals terminals;
    const bool runs = started.problem.empty();
    if (runs) {
        terminals.debugger = link->takeDescriptor();
        terminals.program = link->takeDescriptor();
        if (!terminals.debugger || !terminals.program) throw BrokenConnection();
    }
    if (at == servers.end()) throw BrokenConnection();
    if (!runs) return at->second->failed(started.notice, started.problem);
    const auto state = std::make_shared<KeptDebugger::State>();
    state->pid = started.pid;
    state->target = started.target;
    debuggers[started.debugger] = state;
    at->second->started(
        std::make_unique<KeptDebugger>(link, started.debugger, state, std::move(terminals)),
        started.target, started.notice);
    if (phase != SERVING) at->second->release();
}

void Task::onGone(int id) {
    const auto at = debuggers.find(id);
    if (at == debuggers.end()) return;
    at->second->running = false;
    if (servers[id]->ended() && forks) forks->ended(id);
    node.starts.over(*this, id);
    detachment.look();
}

// --- the debuggers

void Task::open(int id, const AgentHello& hello) {
    AgentHello whole = hello;
    whole.pid = keeper;
    servers[id] = std::make_unique<DebuggerServer>(node.loop, id, node.where, whole,
                                                   static_cast<DebuggerServer::Owner&>(*this));
}

void Task::onStart(int id, const DebuggerStart& start) {
    if (phase != SERVING) return;
    if (id == 0 && !start.forkMark.empty())
        forks.emplace(node.loop, *this, start.forkMark, maxForks, keeper);
    starts[id] = start;
    node.starts.ask(*this, id);
}

void Task::startDebugger(int id) {
    const auto start = starts.extract(id);
    marks.insert(Leftovers::markOf(start.mapped()));
    link->send(KeeperOrder::fork(id, start.mapped()));
}

void Task::onOutput(int id, std::string_view text) {
    if (forks && phase == SERVING) forks->heard(id, servers[id]->pid(), text);
}

void Task::onPrompted(int id) { node.starts.over(*this, id); }

// The front end asks for the child's debugger, or refuses it.
int Task::adopt(const Forks::Child& child) {
    const int id = servers.rbegin()->first + 1;
    AgentHello hello;
    hello.rank = servers[child.parent]->clientNumber();
    hello.size = jobSize;
    hello.forked = child.pid;
    open(id, hello);
    return id;
}

void Task::tellOfForks(int parent, const std::string& text) {
    if (const auto at = servers.find(parent); at != servers.end()) at->second->tell(text);
}

void Task::onAttachDone(int id) {
    if (forks) forks->started(id);
}

void Task::onNoDebugger(int id) {
    node.starts.over(*this, id);
    if (forks) forks->ended(id);
}

void Task::onOver(int id, const std::string& problem) {
    if (id == 0)
        return end(
            problem.empty() ? 0 : 1,
            problem.empty() ? "" : "vexagent: cannot connect to the front end: " + problem + "\n");
    if (!problem.empty())
        servers[0]->tell("a forked process runs on without a debugger: its agent cannot connect: " +
                         problem);
    servers[id]->release();
    if (forks && !servers[id]->running()) forks->ended(id);
}

// --- the end

bool Task::attached() const {
    const auto first = servers.find(0);
    return first != servers.end() && first->second->attachedTo() != 0;
}

void Task::end(int status, const std::string& text) {
    if (phase != SERVING) return;
    phase = ENDING;
    ending.status = status;
    ending.text = text;
    if (forks) forks->stop();
    node.starts.forget(*this);
    if (attached()) {
        for (const auto& [id, server] : servers)
            server->release();
    }
    detachment.begin();
}

bool Task::detaching() const {
    return attached() &&
           std::ranges::any_of(debuggers, [](const auto& each) { return each.second->running; });
}

std::vector<pid_t> Task::heldTasks() const {
    std::vector<pid_t> held;
    for (const auto& [id, each] : debuggers) {
        if (each->running && each->target != 0 && Tracing::tracerOf(each->target) > 0)
            held.push_back(each->target);
    }
    return held;
}

// The debuggers alone, without which the tasks that they hold can go on; what else there is comes
// after that.
void Task::killRest() {
    const auto living = [this] {
        std::vector<pid_t> found;
        for (const auto& [id, each] : debuggers) {
            if (each->running && each->target != 0 && ProcessTree::parentOf(each->pid) != 0)
                found.push_back(each->pid);
        }
        return found;
    };
    for (int round = 0; round < 200; ++round) {
        const std::vector<pid_t> rest = living();
        if (rest.empty()) return;
        for (const pid_t each : rest)
            ::kill(each, SIGKILL);
        ::usleep(5000);
    }
}

void Task::onDetached() {
    if (phase == LOST) return node.leftovers.kill(marks, [this] { over(); });
    phase = FINISHED;
    link->send(KeeperOrder::finish(ending.status, ending.text));
}

// The kernel has told the debuggers: those that have started their program were killed, the others
// let go of theirs (ChildProcess::Start::Orphan).
void Task::lose() {
    const bool wasEnding = std::exchange(phase, LOST) == ENDING;
    if (forks) forks->stop();
    node.starts.forget(*this);
    if (attached()) watchOrphans();
    for (const auto& [id, server] : servers)
        server->release();
    if (!wasEnding) detachment.begin();
}

void Task::watchOrphans() {
    for (const auto& [id, each] : debuggers)
        each->running = each->running && ProcessTree::parentOf(each->pid) != 0;
    detachment.look();
    if (detaching()) watch.after(std::chrono::milliseconds(50), [this] { watchOrphans(); });
}

void Task::over() {
    phase = OVER;
    owner.onTaskOver(*this);
}

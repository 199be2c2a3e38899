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
// Numbers of forked processes before they have clients; no client has such a number.
constexpr int firstChild = 1 << 30;

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
    case AgentRecord::RUNS:
    case AgentRecord::FAILED:
        return takeDebugger(KeeperStarted::of(record));
    case AgentRecord::GONE:
        return onGone(KeeperOrder::of(record).client);
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
    for (const int rank : join.ranks)
        told.push_back({rank, join.jobSize, keeper});
    owner.onTask(*this);
}

void Task::onClosed() {
    if (phase == JOINING || phase == FINISHED) return over();
    lose();
}

void Task::takeDebugger(const KeeperStarted& started) {
    DebuggerProcess::Terminals terminals;
    const bool runs = started.problem.empty();
    if (runs) {
        terminals.debugger = link->takeDescriptor();
        terminals.program = link->takeDescriptor();
    }
    const auto at = debuggers.find(started.client);
    if (at == debuggers.end() || at->second->pid != -1 || !at->second->running)
        throw BrokenConnection();
    if (!runs) {
        at->second->running = false;
        node.server.failed(started.client, started.notice, started.problem);
        return detachment.look();
    }
    at->second->pid = started.pid;
    at->second->target = started.target;
    // This process may have no descriptor left; the debugger's terminal has hung up with that.
    if (!terminals.debugger || !terminals.program)
        return node.server.failed(started.client, started.notice,
                                  "too many files are open there; see ulimit -n");
    node.server.started(
        started.client,
        std::make_unique<KeptDebugger>(link, started.client, at->second, std::move(terminals)),
        started.target, started.notice);
    if (phase != SERVING && attaching) node.server.release(started.client);
}

void Task::onGone(int client) {
    const auto at = debuggers.find(client);
    if (at == debuggers.end() || at->second->pid == -1) throw BrokenConnection();
    at->second->running = false;
    node.server.look(client);
    detachment.look();
}

// --- the debuggers

void Task::start(const DebuggerStart& start) {
    const auto child = children.find(start.attach);
    if (child != children.end())
        numbers[start.client] = child->second;
    else
        attaching = start.attach != 0;
    if (phase != SERVING) return node.server.failed(start.client, "", "its task is over");
    if (!forks && !start.forkMark.empty())
        forks.emplace(node.loop, static_cast<Forks::Owner&>(*this), start.forkMark, maxForks,
                      keeper);
    starts[start.client] = start;
    node.starts.ask(*this, start.client);
}

void Task::startDebugger(int client) {
    const auto start = starts.extract(client);
    debuggers[client] = std::make_shared<KeptDebugger::State>();
    marks.insert(Leftovers::markOf(start.mapped()));
    link->send(KeeperOrder::fork(start.mapped()));
}

void Task::heard(int client, pid_t debugger, std::string_view text) {
    if (forks && phase == SERVING) forks->heard(client, debugger, text);
}

// How the client's process is known to Forks.
int Task::childOf(int client) const {
    const auto number = numbers.find(client);
    return number == numbers.end() ? client : number->second;
}

void Task::prompted(int client) {
    node.starts.over(*this, client);
    if (forks) forks->started(childOf(client));
}

void Task::ended(int client) {
    node.starts.over(*this, client);
    if (forks) forks->ended(childOf(client));
}

void Task::forkLeft(pid_t process) {
    const auto child = children.find(process);
    if (forks && child != children.end()) forks->ended(child->second);
}

// The front end asks for the child's debugger, or refuses it. It has no client's number yet.
int Task::adopt(const Forks::Child& child) {
    const int number = firstChild + static_cast<int>(children.size());
    children[child.pid] = number;
    node.server.offer({child.parent, child.pid});
    return number;
}

void Task::tellOfForks(int parent, const std::string& text) { node.server.tell(parent, text); }

// --- the end

void Task::end(int status, const std::string& text) {
    if (phase != SERVING) return;
    phase = ENDING;
    ending.status = status;
    ending.text = text;
    if (forks) forks->stop();
    node.starts.forget(*this);
    if (attaching) release();
    detachment.begin();
}

void Task::release() {
    for (const auto& [client, each] : debuggers)
        node.server.release(client);
}

bool Task::detaching() const {
    return attaching &&
           std::ranges::any_of(debuggers, [](const auto& each) { return each.second->running; });
}

std::vector<pid_t> Task::heldTasks() const {
    std::vector<pid_t> held;
    for (const auto& [client, each] : debuggers) {
        if (each->running && each->target != 0 && Tracing::tracerOf(each->target) > 0)
            held.push_back(each->target);
    }
    return held;
}

// The debuggers alone, without which the tasks that they hold can go on; what else there is comes
// after that.
void Task::killRest() {
    for (const auto& [client, each] : debuggers) {
        if (each->running && each->target != 0) ::kill(each->pid, SIGKILL);
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
    if (attaching) release();
    for (const auto& [client, each] : debuggers) {
        each->running = each->running && attaching;
        node.server.lose(client);
    }
    if (!wasEnding) detachment.begin();
    watchOrphans();
}

void Task::watchOrphans() {
    for (const auto& [client, each] : debuggers)
        each->running = each->running && ProcessTree::parentOf(each->pid) != 0;
    detachment.look();
    if (detaching()) watch.after(std::chrono::milliseconds(50), [this] { watchOrphans(); });
}

void Task::over() {
    for (const auto& [client, each] : debuggers)
        node.server.lose(client);
    for (const auto& [client, each] : starts)
        node.server.lose(client);
    owner.onTaskOver(*this);
}

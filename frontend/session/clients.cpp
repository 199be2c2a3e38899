#include "frontend/session/clients.h"

#include "backend/clients/localclient.h"
#include "backend/folding/safetext.h"
#include "backend/os/limits.h"
#include "backend/wire/rendezvous.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <thread>

namespace {

std::unique_ptr<ErrorWatch> errorWatch(const Options& options, const Driver& driver) {
    if (options.script.empty()) return nullptr;
    return std::make_unique<ErrorWatch>(driver,
                                        '\002' + Rendezvous::newSecret().substr(0, 16) + '\002');
}

} // namespace

Clients::Clients(EventLoop& eventLoop, const Options& sessionOptions, const Driver& dialect,
                 std::string sessionsJob, Owner& whose)
    : loop(eventLoop),
      options(sessionOptions),
      driver(dialect),
      job(std::move(sessionsJob)),
      owner(whose),
      tasks(static_cast<std::size_t>(options.tasks)),
      errors(errorWatch(options, driver)),
      forked(loop, options, driver, errors.get(), owner),
      patience(loop) {}

Clients::~Clients() = default;

// --- the start

void Clients::start() {
    sayWhoIsMissing();
    if (!options.launcherWords.empty()) callAgents();
    startLocal();
}

void Clients::callAgents() {
    LaunchedJob::Plan plan;
    plan.launcher = options.launcherWords;
    plan.agent = options.agent;
    plan.hosts = options.hostOfTask;
    plan.onlyTcp = std::getenv("VEX_LAUNCH_TCP") != nullptr;
    plan.lenient = options.attaches();
    agents = std::make_unique<LaunchedJob>(loop, plan, static_cast<LaunchedJob::Owner&>(*this));
    try {
        agents->start();
    } catch (const std::runtime_error& error) {
        fail(error.what());
    }
}

void Clients::onSize(int count) {
    if (options.attaches()) return;
    // The tasks' terminals are on their own machines.
    Limits::Facts facts = Limits::facts();
    facts.terminals = std::numeric_limits<long>::max();
    if (const auto problem = Limits::refusal(count, facts)) return fail(*problem);
    tasks.resize(static_cast<std::size_t>(count));
    owner.onTaskCount(count);
}

bool Clients::isLocal(std::size_t task) const {
    return !agents || (options.attaches() && options.targets[task].host.empty());
}

std::size_t Clients::count(Task::Phase reached) const {
    return static_cast<std::size_t>(std::ranges::count(tasks, reached, &Task::phase));
}

// Starting reads symbols: more at a time than there are processors makes nothing faster.
void Clients::startLocal() {
    if (agents && !options.attaches()) return;
    const auto limit = std::max(2u, std::thread::hardware_concurrency());
    const auto busy = [this] {
        std::size_t found = 0;
        for (std::size_t i = 0; i < nextLocal; ++i)
            found += tasks[i].phase == Task::STARTING && isLocal(i);
        return found;
    };
    for (; phase == STARTING && nextLocal < tasks.size() && busy() < limit; ++nextLocal) {
        if (!isLocal(nextLocal)) continue;
        Task& task = tasks[nextLocal];
        task.phase = Task::STARTING;
        const int id = static_cast<int>(nextLocal);
        task.client =
            std::make_unique<LocalClient>(loop, *this, commonStart().with(id, targetOf(id)));
    }
}

void Clients::onAgent(const AgentHello& hello, std::shared_ptr<AgentLink> link) {
    if (phase != STARTING) return link->close();
    nodes.push_back(std::make_unique<RemoteNode>(std::move(link), hello.host,
                                                 static_cast<RemoteNode::Owner&>(*this)));
}

void Clients::onTasks(RemoteNode& node, const std::vector<NodeRecords::Task>& found) {
    if (phase != STARTING) return node.close();
    NodeRecords::Start start{commonStart(), {}};
    // A launcher keeps its own directory, or goes where it was told to; ssh goes home.
    if (!options.hostOfTask.empty() && !options.attaches())
        start.common.folder = std::filesystem::current_path().string();
    // The agent looks for it.
    start.common.argv[0] = options.debuggerThere;
    for (const int id : agents->admit(node.host(), found)) {
        at(id).phase = Task::STARTING;
        at(id).node = &node;
        start.clients.emplace_back(id, targetOf(id));
    }
    if (!start.clients.empty())
        node.start(start);
    else if (node.clients().empty())
        node.close();
}

void Clients::onMissing(int id, const std::string& problem) {
    if (phase != STARTING) return;
    std::fprintf(stderr, "vex: client %d is left out: %s\n", id, problem.c_str());
    at(id).phase = Task::STARTING;
    settle(id, Task::ENDED);
}

void Clients::onLauncherSaid(const std::string& line) {
    const std::string text = "launcher: " + SafeText::line(line);
    if (phase == STARTING) std::fprintf(stderr, "vex: %s\n", text.c_str());
    if (phase == RUNNING) owner.announce(text);
}

void Clients::onLeftBehind(const std::string& launcher, const std::string& remedy) {
    std::fprintf(stderr, "vex: %s had to be killed, and its job may still run; end that by: %s\n",
                 launcher.c_str(), remedy.c_str());
}

// The debugger has prompted, or ended; the first of these is the end of its start.
void Clients::settle(int id, Task::Phase reached) {
    const bool wasStarting = std::exchange(at(id).phase, reached) == Task::STARTING;
    if (!wasStarting) return;
    ++settled;
    startLocal();
    if (phase == STARTING && settled == tasks.size()) allStarted();
}

void Clients::allStarted() {
    std::fputs(startupOutput.report(driver).c_str(), stderr);
    if (const auto problem = defect()) return fail(*problem);
    if (const std::string notice = driver.notice(); !notice.empty())
        std::fprintf(stderr, "vex: %s\n", notice.c_str());
    phase = RUNNING;
    patience.cancel();
    forked.begin(static_cast<int>(tasks.size()));
    owner.onAllStarted();
}

std::optional<std::string> Clients::defect() const {
    if (std::ranges::none_of(tasks, [](const Task& task) { return task.client || task.node; }))
        return "no task could be reached";
    if (living() == 0)
        return "no debugger is left; try: " + options.debugger + " " +
               (options.attaches() ? "-p PID" : options.program[0]);
    if (options.attaches() && !attached) return "no debugger could attach";
    if (options.launches() &&
        startupOutput.allSaid(options.program[0] + ": No such file or directory", tasks.size()))
        return "no task's host has the program; is its file system shared, its path right there?";
    for (std::size_t i = 0; errors && i < tasks.size(); ++i) {
        const bool here = tasks[i].client && tasks[i].phase != Task::ENDED;
        if (errorsUntold || (here && !errors->canTell(static_cast<int>(i))))
            return "the debuggers cannot tell their errors, which --script needs: is this a gdb "
                   "without Python?";
    }
    return std::nullopt;
}

void Clients::sayWhoIsMissing() {
    patience.after(std::chrono::seconds(10), [this] {
        if (phase != STARTING) return;
        if (tasks.empty())
            std::fprintf(stderr, "vex: the launcher has not started a task yet; Ctrl-C gives up\n");
        else
            std::fprintf(stderr, "vex: %zu of %zu debuggers have started; Ctrl-C gives up\n",
                         count(Task::READY) + count(Task::ENDED), tasks.size());
        for (const std::string& host : agents ? agents->awaitedHosts() : std::set<std::string>())
            std::fprintf(stderr, "vex: no answer yet from host %s\n", host.c_str());
        sayWhoIsMissing();
    });
}

void Clients::fail(const std::string& problem) {
    if (phase == OVER) return;
    std::fprintf(stderr, "vex: %s\n", problem.c_str());
    owner.onStartFailed();
}

// Of any task; it needs the task's number and process.
DebuggerStart Clients::commonStart() const {
    Driver::Launch launch = ForkedClients::newLaunch(driver, errors.get());
    launch.program = options.program;
    DebuggerStart start = DebuggerStart::of(
        driver, launch, {{"VEX_NTASKS", std::to_string(tasks.size())}, {"VEX_JOB", job}},
        options.attaches() ? 1 : 0);
    start.clientVariable = "VEX_TASK";
    start.throughShells = options.mpiLauncher != 0;
    if (options.forks) start.forkMark = driver.forkMark();
    return start;
}

pid_t Clients::targetOf(int id) const {
    return options.attaches() ? options.targets[static_cast<std::size_t>(id)].pid : 0;
}

// --- while they run

void Clients::onOutput(int id, std::string_view text) {
    std::string plain;
    if (errors) text = plain = errors->pass(id, text);
    if (phase == STARTING) startupOutput.add(id, text);
    if (phase != RUNNING) return;
    if (const pid_t process = at(id).client->pid(); process != -1) forked.heard(id, process, text);
    owner.onClientOutput(id, text);
}

void Clients::onPrompt(int id) {
    if (phase == RUNNING) owner.onClientPrompt(id);
    if (phase != STARTING) return;
    // What a debugger prints while it attaches is of interest only when it could not.
    if (at(id).client->holds()) {
        attached = true;
        startupOutput.drop(id);
    }
    settle(id, Task::READY);
}

void Clients::onRuns(int id, bool runs) {
    if (phase == RUNNING) owner.onClientRuns(id, runs);
}

void Clients::taskEnded(int id) {
    if (phase == STARTING) startupOutput.add(id, "\nthe debugger ended during the start\n");
    if (phase != RUNNING) return settle(id, Task::ENDED);
    at(id).phase = Task::ENDED;
    forked.taskEnded(id);
    // Of those of a node, the node has counted the errors.
    if (errors && at(id).client) errors->ended(id);
    owner.onClientEnded(id);
}

// --- nodes

void Clients::onStarted(RemoteNode& node, const NodeRecords::Started& started) {
    ClientSet ours; // tasks
    for (const int id : started.clients) {
        if (isTask(id))
            ours.insert(id);
        else
            forked.onStarted(id, started);
    }
    if (ours.empty() || phase != STARTING) return;
    // What a debugger prints while it attaches is of interest only when it could not.
    if (!started.holds)
        startupOutput.add(
            ours, started.text + (started.ended ? "\nthe debugger ended during the start\n" : ""));
    attached = attached || started.holds;
    if (errors && !started.ended && !started.tellsErrors) errorsUntold = true;
    owner.onNode(ours, node);
    for (const int id : ours)
        settle(id, started.ended ? Task::ENDED : Task::READY);
}

void Clients::onEnded(const ClientSet& clients) {
    for (const int id : clients) {
        if (isTask(id))
            taskEnded(id);
        else
            forked.ended(id);
    }
}

void Clients::onIdentified(const ClientSet& clients) {
    if (phase != RUNNING) return;
    if (isTask(clients.front()))
        owner.onIdentity();
    else
        forked.onIdentified(clients);
}

void Clients::onTold(int id, const std::string& text) {
    if (phase != RUNNING) return;
    if (isTask(id))
        owner.tellOfClient(id, text);
    else
        forked.onTold(id, text);
}

void Clients::onErrors(const NodeRecords::Errors& reported) {
    if (errors) errors->add(reported.count, reported.clients);
}

void Clients::onForked(RemoteNode& node, const NodeRecords::Fork& fork) {
    if (phase == RUNNING && options.forks && alive(fork.parent))
        forked.add({fork.parent, fork.process}, node);
    else
        node.leaveFork(fork);
}

Node::Listener* Clients::listener() { return phase == RUNNING ? &owner.nodeListener() : nullptr; }

bool Clients::mayRead(const RemoteNode& node) {
    return phase != RUNNING || owner.mayReadClients(node.clients());
}

// --- all of them

void Clients::collect() {
    for (std::size_t i = 0; i < tasks.size(); ++i) {
        if (tasks[i].client && tasks[i].client->ended()) taskEnded(static_cast<int>(i));
    }
    forked.collect();
    if (agents) agents->collect();
}

void Clients::listPids(std::vector<pid_t>& pids) const {
    for (const Task& task : tasks) {
        if (task.client) pids.push_back(task.client->pid());
    }
    forked.listPids(pids);
    if (agents) agents->listPids(pids);
}

void Clients::type(int id, const std::string& line) {
    if (errors) errors->typed(id, line);
    of(id).type(driver.whole(line));
}

void Clients::resume() {
    for (const Task& task : tasks) {
        if (task.client) task.client->resume();
    }
    for (const auto& node : nodes)
        node->resume();
    forked.resume();
}

std::string Clients::describe(int id) const {
    if (!isTask(id)) return forked.describe(id);
    return at(id).node ? at(id).node->identity(id) : at(id).client->identity();
}

int Clients::askIdentities() {
    return static_cast<int>(std::ranges::count_if(
        nodes, [](const auto& node) { return node->askIdentities(node->clients()); }));
}

bool Clients::alive(int id) const {
    return isTask(id) ? at(id).phase != Task::ENDED : forked.alive(id);
}

int Clients::livingTasks() const { return static_cast<int>(tasks.size() - count(Task::ENDED)); }

// --- the end

void Clients::end() {
    phase = OVER;
    patience.cancel();
    if (agents) agents->stop();
    for (const Task& task : tasks) {
        if (task.client) task.client->release();
    }
    for (const auto& node : nodes)
        node->close();
    forked.end();
}

bool Clients::releasing() const {
    if (agents && agents->running()) return true;
    const auto isHere = [](const Task& task) {
        return task.client && task.client->pid() != -1 && task.client->running();
    };
    return options.attaches() && (std::ranges::any_of(tasks, isHere) || forked.running());
}

std::optional<std::string> Clients::verdict() const {
    return errors ? errors->verdict() : std::nullopt;
}

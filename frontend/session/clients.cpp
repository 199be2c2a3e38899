#include "frontend/session/clients.h"

#include "backend/clients/localclient.h"
#include "backend/folding/safetext.h"
#include "backend/os/limits.h"
#include "backend/os/processtree.h"
#include "backend/os/text.h"
#include "backend/wire/rendezvous.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <unistd.h>
#include <utility>

namespace {

// Within this time the agents of a job that its launcher has ended hang up.
constexpr auto maxFarewell = std::chrono::milliseconds(300);

} // namespace

Clients::Clients(EventLoop& eventLoop, const Options& sessionOptions, const Driver& dialect,
                 std::string sessionsJob, Owner& whose)
    : loop(eventLoop),
      options(sessionOptions),
      driver(dialect),
      job(std::move(sessionsJob)),
      owner(whose),
      tasks(static_cast<std::size_t>(options.tasks)),
      errors(options.script.empty()
                 ? nullptr
                 : std::make_unique<ErrorWatch>(
                       driver, '\002' + Rendezvous::newSecret().substr(0, 16) + '\002')),
      starts(options, driver, job, errors.get()),
      refusal(loop),
      forked(loop, options, driver, job, errors.get(), owner),
      progress(loop, static_cast<StartProgress::Owner&>(*this)),
      lost(loop, options, static_cast<StartLosses::Owner&>(*this)),
      farewell(loop) {
    inPhase[Task::AWAITED] = tasks.size();
}

Clients::~Clients() = default;

// --- the start

void Clients::start() {
    progress.begin();
    lost.wait();
    if (!options.launcherWords.empty()) callAgents();
    // There is no core file of these ranks.
    for (std::size_t i = 0; i < options.cores.size(); ++i) {
        if (options.cores[i].empty()) move(i, Task::ENDED);
    }
    startLocal();
}

void Clients::callAgents() {
    LaunchedJob::Plan plan;
    plan.launcher = options.launcherWords;
    plan.agent = options.agent;
    plan.hosts = options.hostOfTask;
    plan.onlyTcp = std::getenv("VEX_LAUNCH_TCP") != nullptr;
    plan.lenient = plan.oneAHost = options.attaches();
    agents = std::make_unique<LaunchedJob>(loop, plan, static_cast<LaunchedJob::Owner&>(*this));
    try {
        agents->start();
    } catch (const std::runtime_error& error) {
        fail(error.what());
    }
}

void Clients::onSize(int count) {
    if (options.attaches()) return;
    // What the debuggers need, their agents' machines have.
    tasks.resize(static_cast<std::size_t>(count));
    inPhase[Task::AWAITED] = tasks.size();
    owner.onTaskCount(count);
}

bool Clients::isLocal(std::size_t task) const {
    return !agents || (options.attaches() && options.targets[task].host.empty());
}

// All changes of a task's phase: how many are in which is asked for each of them.
void Clients::move(std::size_t task, Task::Phase reached) {
    const Task::Phase before = std::exchange(tasks[task].phase, reached);
    --inPhase[before];
    ++inPhase[reached];
    if (!isLocal(task)) return;
    localStarting += reached == Task::STARTING;
    localStarting -= before == Task::STARTING;
}

// Starting reads symbols: more at a time than there are processors makes nothing faster.
void Clients::startLocal() {
    if (agents && !options.attaches()) return;
    const auto limit = std::max(2u, std::thread::hardware_concurrency());
    for (; phase == STARTING && nextLocal < tasks.size() && localStarting < limit; ++nextLocal) {
        if (!isLocal(nextLocal) || tasks[nextLocal].phase != Task::AWAITED) continue;
        move(nextLocal, Task::STARTING);
        const int id = static_cast<int>(nextLocal);
        at(id).client = std::make_unique<LocalClient>(loop, *this, starts.local(id, tasks.size()));
        taskOf.emplace(at(id).client->pid(), id);
    }
}

void Clients::onAgent(const AgentHello& hello, std::shared_ptr<AgentLink> link) {
    if (phase != STARTING) return link->close();
    nodes.push_back(std::make_unique<RemoteNode>(std::move(link), hello.host,
                                                 static_cast<RemoteNode::Owner&>(*this)));
}

void Clients::onTasks(RemoteNode& node, const std::vector<NodeRecords::Task>& found) {
    // Those that it has already go on.
    if (phase != STARTING && !node.clients().empty()) return;
    if (phase != STARTING) return node.close();
    lost.wait(); // the job may have stood in a queue until now
    // The first of all tasks tells how many they are.
    const auto admitted = agents->admit(node.host(), found);
    NodeRecords::Start start{starts.common(tasks.size()), {}};
    // A launcher keeps its own directory, ssh goes home.
    if (!options.hostOfTask.empty() && !options.attaches())
        start.common.folder = std::filesystem::current_path().string();
    // The agent looks for it.
    start.common.argv[0] = options.debuggerThere;
    for (const int id : admitted) {
        move(static_cast<std::size_t>(id), Task::STARTING);
        at(id).node = &node;
        start.clients.emplace_back(id, starts.targetOf(id));
    }
    if (!start.clients.empty()) return node.start(start);
    // Other tasks of its host may follow the refused one in a moment.
    refused.insert(&node);
    refusal.after(std::chrono::milliseconds(500), [this] {
        for (RemoteNode* const each : std::exchange(refused, {})) {
            if (each->clients().empty()) each->close();
        }
    });
}

void Clients::onMissing(const ClientSet& missing, const std::string& problem) {
    if (phase != STARTING) return;
    const std::string clients =
        (missing.size() == 1 ? "client " : "clients ") + Text::list(missing);
    say(clients + (missing.size() == 1 ? " is" : " are") + " left out: " + problem);
    lost.add({problem, missing});
    leaveOut(missing);
}

void Clients::leaveOut(const ClientSet& missing) {
    for (const int id : missing)
        move(static_cast<std::size_t>(id), Task::STARTING);
    for (const int id : missing)
        settle(id, Task::ENDED);
}

// A launcher without tasks may stand in a queue. What waits here for its turn has one.
void Clients::onStandstill(int seconds, bool again) {
    ClientSet late;
    for (std::size_t i = 0; i < tasks.size(); ++i) {
        const bool awaited = tasks[i].phase == Task::AWAITED && (again || !isLocal(i));
        if (awaited || tasks[i].phase == Task::STARTING) late.insert(static_cast<int>(i));
    }
    lost.giveUp(late, seconds);
    leaveOut(late);
    if (phase == STARTING) lost.isCut() ? serve() : lost.wait(true);
}

void Clients::onLauncherSaid(const std::string& line) {
    const std::string text = "launcher: " + SafeText::line(line);
    if (phase == RUNNING)
        owner.announce(text);
    else
        say(text);
}

void Clients::onLeftBehind(const std::string& launcher, const std::string& remedy) {
    say(launcher + " had to be killed, and its job may still run; end that by: " + remedy);
}

// The debugger has prompted, or ended; the first of these is the end of its start.
void Clients::settle(int id, Task::Phase reached) {
    const bool wasStarting = at(id).phase == Task::STARTING;
    move(static_cast<std::size_t>(id), reached);
    if (!wasStarting) return;
    if (phase == STARTING) lost.wait();
    startLocal();
    if (phase == STARTING && count(Task::AWAITED) + count(Task::STARTING) == 0) allStarted();
}

void Clients::allStarted() {
    // A report says what debuggers say of core files, say; but why there is none, they say alone.
    progress.print(startupOutput.report(driver, !options.report.empty() && !defect()));
    if (mayGoOn()) serve();
}

void Clients::serve() {
    if (const auto problem = defect()) return fail(*problem);
    const std::string notice = driver.notice();
    // It is for those who type.
    if (!notice.empty() && options.report.empty()) say(notice);
    phase = RUNNING;
    lost.end();
    progress.end();
    forked.begin(static_cast<int>(tasks.size()));
    owner.onAllStarted();
}

// Half a job is debugged only when the user says so.
bool Clients::mayGoOn() {
    if (options.mpiLauncher == 0 || count(Task::ENDED) == 0 || livingTasks() == 0) return true;
    ClientSet missing;
    for (std::size_t i = 0; i < tasks.size(); ++i) {
        const int rank = options.targets[i].rank;
        if (tasks[i].phase == Task::ENDED) missing.insert(rank >= 0 ? rank : static_cast<int>(i));
    }
    const std::string some = "the " + std::to_string(livingTasks()) + " that could be attached to";
    say((missing.size() == 1 ? "rank " : "ranks ") + Text::list(missing) +
        (missing.size() == 1 ? " is" : " are") + " missing");
    if (options.partial || lost.gaveUp()) return true;
    if (!options.interactive || !options.script.empty() || ::isatty(STDERR_FILENO) == 0) {
        fail("to go on with " + some + ": --partial");
        return false;
    }
    asking = true;
    progress.end();
    owner.onMissingTasks("vex: go on with " + some + "? (y/n) ");
    return false;
}

std::optional<std::string> Clients::defect() const {
    const auto reached = [](const Task& task) { return task.client || task.node; };
    // Then the report tells it.
    if (lost.isCut()) return std::nullopt;
    if (std::ranges::none_of(tasks, reached)) return "no task could be reached";
    if (lost.gaveUp() && (living() == 0 || !attached)) return std::nullopt;
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

StartProgress::Facts Clients::startFacts() const {
    StartProgress::Facts facts;
    facts.started = count(Task::READY) + count(Task::ENDED);
    facts.expected = tasks.size();
    facts.awaited = agents ? agents->awaitedHosts() : std::set<std::string>();
    facts.hosts = !facts.awaited.empty();
    if (facts.hosts) return facts;
    // A launcher does not tell where its tasks will be.
    if (count(Task::STARTING) == 0 && agents) facts.awaited.insert(options.launcherWords[0]);
    const RemoteNode* last = nullptr;
    for (const Task& task : tasks) {
        if (task.phase == Task::STARTING && task.node &&
            std::exchange(last, task.node) != task.node)
            facts.awaited.insert(task.node->host());
    }
    if (facts.awaited.empty()) facts.awaited.insert(driver.name());
    return facts;
}

void Clients::fail(const std::string& problem) {
    if (phase == OVER) return;
    say(problem);
    owner.onStartFailed();
}

// --- while they run

void Clients::onOutput(int id, std::string_view text) {
    std::string plain;
    if (errors) text = plain = errors->pass(id, text);
    if (phase == STARTING) startupOutput.add(id, text);
    if (phase != RUNNING || !alive(id)) return;
    if (const pid_t process = at(id).client->pid(); process != -1) forked.heard(id, process, text);
    owner.onClientOutput(id, text);
}

void Clients::onPrompt(int id) {
    if (at(id).phase == Task::ENDED && (phase != STARTING || lost.arrived({id}).empty())) return;
    if (phase == RUNNING) owner.onClientPrompt(id);
    if (phase != STARTING) return;
    // What a debugger prints while it attaches is of interest only when it could not.
    if (at(id).client->holds()) {
        attached = true;
        startupOutput.drop(id);
    }
    settle(id, Task::READY);
}

void Clients::taskEnded(int id) {
    if (phase == STARTING) startupOutput.add(id, "\nthe debugger ended during the start\n");
    if (phase == STARTING && at(id).phase != Task::ENDED)
        lost.add({"its debugger ended at the start", {id}, true});
    if (phase != RUNNING) return settle(id, Task::ENDED);
    move(static_cast<std::size_t>(id), Task::ENDED);
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
    if (!started.holds)
        startupOutput.add(
            ours, started.text + (started.ended ? "\nthe debugger ended during the start\n" : ""));
    attached = attached || started.holds;
    if (!started.ended) lost.arrived(ours);
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

// --- all of them

bool Clients::collect(pid_t child) {
    const auto found = taskOf.find(child);
    if (found == taskOf.end()) {
        forked.collect();
        if (agents) agents->collect();
        return false;
    }
    const int task = found->second;
    taskOf.erase(found);
    if (at(task).client->ended()) taskEnded(task);
    return true;
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

// --- the end

void Clients::end() {
    lost.end();
    const bool deserted = std::exchange(phase, OVER) == RUNNING && living() == 0;
    progress.end();
    if (agents) agents->stop(deserted);
    for (const Task& task : tasks) {
        if (task.client) task.client->release();
    }
    forked.end();
    const auto close = [this] {
        for (const auto& node : nodes)
            node->close();
    };
    if (!deserted || !options.launches()) return close();
    // Agents that hang up now were ended by their launcher, the others have lost their debuggers.
    farewell.after(maxFarewell, [this, close] {
        if (std::ranges::any_of(nodes, [](const auto& node) { return node->open(); }))
            agents->hush();
        close();
    });
}

bool Clients::releasing() const {
    if (agents && agents->running()) return true;
    const auto isHere = [](const Task& task) {
        return task.client && task.client->pid() != -1 && task.client->running();
    };
    // Agents on this machine end by themselves: one that is killed cannot let its task go on.
    const auto isAgent = [](pid_t id) { return ProcessTree::nameOf(id).starts_with("vexagent"); };
    return options.attaches() &&
           (std::ranges::any_of(tasks, isHere) || forked.running() ||
            (agents && std::ranges::any_of(ProcessTree::descendants(::getpid()), isAgent)));
}

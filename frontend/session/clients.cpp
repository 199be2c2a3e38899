#include "frontend/session/clients.h"

#include "backend/clients/localclient.h"
#include "backend/os/limits.h"
#include "backend/wire/rendezvous.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
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
      progress(loop, static_cast<StartProgress::Owner&>(*this)) {
    inPhase[Task::AWAITED] = tasks.size();
}

Clients::~Clients() = default;

// --- the start

void Clients::start() {
    progress.begin();
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
    plan.forks = options.forks;
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
    if (const auto problem = Limits::refusal({.tasks = count}, Limits::facts()))
        return fail(*problem);
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
    const auto limit = std::max(2u, std::thread::hardware_concurrency());
    for (; phase == STARTING && nextLocal < tasks.size() && localStarting < limit; ++nextLocal) {
        if (!isLocal(nextLocal)) continue;
        move(nextLocal, Task::STARTING);
        tasks[nextLocal].client =
            std::make_unique<LocalClient>(loop, *this, startOf(static_cast<int>(nextLocal)));
        taskOf.emplace(tasks[nextLocal].client->pid(), static_cast<int>(nextLocal));
    }
}

void Clients::onAgent(int id, std::shared_ptr<AgentLink> link) {
    if (phase != STARTING) return link->close();
    DebuggerStart start = startOf(id);
    // A launcher keeps its own directory, or goes where it was told to; ssh goes home.
    if (!options.hostOfTask.empty() && !options.attaches())
        start.folder = std::filesystem::current_path().string();
    // The agent looks for it.
    start.argv[0] = options.debuggerThere;
    move(static_cast<std::size_t>(id), Task::STARTING);
    at(id).client = std::make_unique<RemoteClient>(std::move(link), *this,
                                                   static_cast<RemoteClient::Owner&>(*this), start);
}

void Clients::onMissing(int id, const std::string& problem) {
    if (phase != STARTING) return;
    say("client " + std::to_string(id) + " is left out: " + problem);
    move(static_cast<std::size_t>(id), Task::STARTING);
    settle(id, Task::ENDED);
}

void Clients::onForkedAgent(int parent, pid_t process, std::shared_ptr<AgentLink> link) {
    if (phase == RUNNING && parent >= 0 && alive(parent))
        forked.add({parent, process}, std::move(link));
    else
        link->close();
}

void Clients::onLauncherSaid(const std::string& line) {
    const std::string text = "launcher: " + line;
    if (phase == STARTING) say(text);
    if (phase == RUNNING) owner.announce(text);
}

// The debugger has prompted, or ended; the first of these is the end of its start.
void Clients::settle(int id, Task::Phase reached) {
    const bool wasStarting = at(id).phase == Task::STARTING;
    move(static_cast<std::size_t>(id), reached);
    if (!wasStarting) return;
    startLocal();
    if (phase == STARTING && count(Task::AWAITED) + count(Task::STARTING) == 0) allStarted();
}

void Clients::allStarted() {
    progress.print(startupOutput.report(driver));
    if (const auto problem = defect()) return fail(*problem);
    phase = RUNNING;
    progress.end();
    forked.begin(static_cast<int>(tasks.size()));
    owner.onAllStarted();
}

std::optional<std::string> Clients::defect() const {
    if (std::ranges::none_of(tasks, [](const Task& task) { return !!task.client; }))
        return "no task could be reached";
    if (living() == 0)
        return "no debugger is left; try: " + options.debugger + " " +
               (options.attaches() ? "-p PID" : options.program[0]);
    if (options.attaches() && !attached) return "no debugger could attach";
    if (options.launches() &&
        startupOutput.allSaid(options.program[0] + ": No such file or directory", tasks.size()))
        return "no task's host has the program; is its file system shared, its path right there?";
    for (std::size_t i = 0; errors && i < tasks.size(); ++i) {
        if (tasks[i].phase != Task::ENDED && !errors->canTell(static_cast<int>(i)))
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
    // Hosts that have brought their agents, and launchers, tell no more.
    if (!facts.hosts)
        facts.awaited.insert(agents && count(Task::STARTING) == 0 ? options.launcherWords[0]
                                                                  : driver.name());
    return facts;
}

void Clients::fail(const std::string& problem) {
    if (phase == OVER) return;
    say(problem);
    owner.onStartFailed();
}

DebuggerStart Clients::startOf(int id) const {
    Driver::Launch launch = ForkedClients::newLaunch(driver, errors.get());
    launch.program = options.program;
    launch.cachesIndex = options.indexCache;
    DebuggerStart start = DebuggerStart::of(
        driver, launch,
        {{"VEX_TASK", std::to_string(id)},
         {"VEX_NTASKS", std::to_string(tasks.size())},
         {"VEX_JOB", job}},
        options.attaches() ? options.targets[static_cast<std::size_t>(id)].pid : 0);
    start.throughShells = options.mpiLauncher != 0;
    start.client = id;
    if (options.forks) start.forkMark = driver.forkMark();
    return start;
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

void Clients::onEnded(int id) {
    if (phase == STARTING) startupOutput.add(id, "\nthe debugger ended during the start\n");
    if (phase != RUNNING) return settle(id, Task::ENDED);
    move(static_cast<std::size_t>(id), Task::ENDED);
    forked.taskEnded(id);
    if (errors) errors->ended(id);
    owner.onClientEnded(id);
}

void Clients::onIdentified(int /*task*/) {
    if (phase == RUNNING) owner.onIdentity();
}

void Clients::onTold(int id, const std::string& text) {
    if (phase == RUNNING) owner.tellOfClient(id, text);
}

bool Clients::collect(pid_t child) {
    const auto found = taskOf.find(child);
    if (found == taskOf.end()) {
        forked.collect();
        if (agents) agents->collect();
        return false;
    }
    const int task = found->second;
    taskOf.erase(found);
    if (at(task).client->ended()) onEnded(task);
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
    forked.resume();
}

int Clients::askIdentities() {
    const auto asked = std::ranges::count_if(tasks, [](const Task& task) {
        return task.phase != Task::ENDED && task.client && task.client->askIdentity();
    });
    return static_cast<int>(asked) + forked.askIdentities();
}

bool Clients::alive(int id) const {
    return isTask(id) ? at(id).phase != Task::ENDED : forked.alive(id);
}

int Clients::livingTasks() const { return static_cast<int>(tasks.size() - count(Task::ENDED)); }

// --- the end

void Clients::end() {
    phase = OVER;
    progress.end();
    if (agents) agents->stop();
    for (const Task& task : tasks) {
        if (task.client) task.client->release();
    }
    forked.end();
}

bool Clients::releasing() const {
    if (agents && count(Task::AWAITED) < tasks.size() && agents->running()) return true;
    const auto isHere = [](const Task& task) {
        return task.client && task.client->pid() != -1 && task.client->running();
    };
    return options.attaches() && (std::ranges::any_of(tasks, isHere) || forked.running());
}

std::optional<std::string> Clients::verdict() const {
    return errors ? errors->verdict() : std::nullopt;
}

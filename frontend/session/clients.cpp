#include "frontend/session/clients.h"

#include "backend/clients/localclient.h"
#include "backend/os/limits.h"
#include "backend/os/processtree.h"
#include "frontend/launch/remoteclient.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <thread>

namespace {

// So many forked processes of this machine are debugged, or as many as there are tasks.
constexpr std::size_t fewForks = 16;

// Letters and digits.
std::string nonce() { return Rendezvous::newSecret().substr(0, 16); }

} // namespace

Clients::Clients(asio::io_context& eventLoop, const Options& wanted, const Driver& kind,
                 std::string sessionsJob, Handler handler)
    : loop(eventLoop),
      options(wanted),
      driver(kind),
      job(std::move(sessionsJob)),
      handle(std::move(handler)),
      seats(static_cast<std::size_t>(wanted.tasks)),
      forks(loop,
            {[this](const Forks::Child& child) { return adopt(child); },
             [this](int parent, const std::string& text) { handle.tell(parent, text); }},
            wanted.forks ? driver.forkMark() : "", std::max(fewForks, seats.size())),
      patience(loop) {
    if (!options.script.empty())
        errors = std::make_unique<ErrorWatch>(driver, '\002' + nonce() + '\002');
}

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
    plan.forks = options.forks;
    agents = std::make_unique<LaunchedJob>(
        loop, plan,
        LaunchedJob::Handler{
            [this](int count) { setSize(count); },
            [this](int client, auto link) { onAgent(client, std::move(link)); },
            [this](int parent, pid_t process, auto link) {
                onForkedAgent(parent, process, std::move(link));
            },
            [this](int client, const std::string& problem) { onMissing(client, problem); },
            [this](const std::string& line) { onLauncherSaid(line); },
            [this](const std::string& problem) { fail(problem); }});
    try {
        agents->start();
    } catch (const std::runtime_error& error) {
        fail(error.what());
    }
}

void Clients::setSize(int count) {
    if (options.attaches()) return;
    // Their terminals are their agents'.
    Limits::Facts facts = Limits::facts();
    facts.terminals = std::numeric_limits<long>::max();
    if (const auto problem = Limits::refusal(count, facts)) return fail(*problem);
    seats.resize(static_cast<std::size_t>(count));
    handle.sized(count);
}

bool Clients::isLocal(std::size_t client) const {
    return !agents || (options.attaches() && options.targets[client].host.empty());
}

// Starting reads symbols: more at a time than there are processors makes nothing faster.
void Clients::startLocal() {
    const auto limit = std::max(2u, std::thread::hardware_concurrency());
    const auto busy = [this] {
        return std::ranges::count_if(
            starting, [this](int each) { return isLocal(static_cast<std::size_t>(each)); });
    };
    for (; phase == STARTING && nextLocal < seats.size() && busy() < limit; ++nextLocal) {
        if (!isLocal(nextLocal)) continue;
        const int id = static_cast<int>(nextLocal);
        ++begun;
        starting.insert(id);
        at(id).client = std::make_unique<LocalClient>(loop, handlerOf(id), startOf(id));
    }
}

void Clients::onAgent(int id, std::shared_ptr<AgentLink> link) {
    if (phase != STARTING) return link->close();
    DebuggerStart start = startOf(id);
    // A launcher keeps its own directory, or goes where it was told to; ssh goes home.
    if (!options.hostOfTask.empty() && !options.attaches())
        start.folder = std::filesystem::current_path().string();
    // It is looked for there.
    start.argv[0] = options.debuggerThere;
    ++begun;
    starting.insert(id);
    at(id).client = remote(id, std::move(link), start);
}

void Clients::onMissing(int id, const std::string& problem) {
    if (phase != STARTING) return;
    std::fprintf(stderr, "vex: client %d is left out: %s\n", id, problem.c_str());
    at(id).alive = false;
    ++begun;
    starting.insert(id);
    onStarted(id);
}

void Clients::onLauncherSaid(const std::string& line) {
    const std::string text = "launcher: " + line;
    if (phase == STARTING) std::fprintf(stderr, "vex: %s\n", text.c_str());
    if (phase == RUNNING) handle.announce(text);
}

// It has prompted for the first time, or ended before; it may end, or prompt again, later.
void Clients::onStarted(int id) {
    if (!starting.erase(id)) return;
    startLocal();
    if (phase == STARTING && begun == seats.size() && starting.empty()) allStarted();
}

void Clients::allStarted() {
    std::fputs(startupOutput.report(driver).c_str(), stderr);
    if (const auto problem = defect()) return fail(*problem);
    phase = RUNNING;
    patience.cancel();
    handle.started();
}

std::optional<std::string> Clients::defect() const {
    if (begun > 0 && std::ranges::none_of(seats, [](const Seat& seat) { return !!seat.client; }))
        return "no task could be reached";
    if (living() == 0)
        return "no debugger is left; try: " + options.debugger + " " +
               (options.attaches() ? "-p PID" : options.program[0]);
    if (options.attaches() && std::ranges::find(seats, true, &Seat::attached) == seats.end())
        return "no debugger could attach";
    if (options.launches() &&
        startupOutput.allSaid(options.program[0] + ": No such file or directory", seats.size()))
        return "no task's host has the program; is its file system shared, its path right there?";
    for (std::size_t i = 0; errors && i < seats.size(); ++i) {
        if (seats[i].alive && !errors->canTell(static_cast<int>(i)))
            return "the debuggers cannot tell their errors, which --script needs: is this a gdb "
                   "without Python?";
    }
    return std::nullopt;
}

void Clients::sayWhoIsMissing() {
    patience.expires_after(std::chrono::seconds(10));
    patience.async_wait([this](const asio::error_code& fault) {
        if (fault || phase != STARTING) return;
        if (seats.empty())
            std::fprintf(stderr, "vex: the launcher has not started a task yet; Ctrl-C gives up\n");
        else
            std::fprintf(stderr, "vex: %zu of %zu debuggers have started; Ctrl-C gives up\n",
                         begun - starting.size(), seats.size());
        for (const std::string& host : agents ? agents->awaitedHosts() : std::set<std::string>())
            std::fprintf(stderr, "vex: no answer yet from host %s\n", host.c_str());
        sayWhoIsMissing();
    });
}

void Clients::fail(const std::string& problem) {
    if (phase == OVER) return;
    std::fprintf(stderr, "vex: %s\n", problem.c_str());
    handle.failed();
}

Driver::Launch Clients::newLaunch() const {
    Driver::Launch launch;
    launch.nonce = nonce();
    if (errors && driver.marksErrors()) launch.errorMark = errors->mark();
    return launch;
}

DebuggerStart Clients::startOf(int id) const {
    Driver::Launch launch = newLaunch();
    launch.program = options.program;
    DebuggerStart start = DebuggerStart::of(
        driver, launch,
        {{"VEX_TASK", std::to_string(id)},
         {"VEX_NTASKS", std::to_string(seats.size())},
         {"VEX_JOB", job}},
        options.attaches() ? options.targets[static_cast<std::size_t>(id)].pid : 0);
    start.throughShells = options.mpiLauncher != 0;
    start.client = id;
    if (options.forks) start.forkMark = driver.forkMark();
    return start;
}

// --- while they run

Client::Handler Clients::handlerOf(int id) {
    return {[this, id](std::string_view text) { onOutput(id, text); }, [this, id] { onPrompt(id); },
            [this, id] { return phase != RUNNING || handle.mayRead(id); }};
}

std::unique_ptr<Client> Clients::remote(int id, std::shared_ptr<AgentLink> link,
                                        const DebuggerStart& start) {
    return std::make_unique<RemoteClient>(
        std::move(link), handlerOf(id),
        RemoteClient::Watch{[this, id] { onEnded(id); }, [this, id] { onIdentified(id); },
                            [this, id](const std::string& text) {
                                if (phase == RUNNING)
                                    handle.tell(at(id).joining ? at(id).parent : id, text);
                            }},
        start);
}

void Clients::onOutput(int id, std::string_view text) {
    std::string plain;
    if (errors) text = plain = errors->pass(id, text, !at(id).joining);
    if (phase == STARTING) startupOutput.add(id, text);
    if (phase != RUNNING || at(id).joining) return;
    if (const pid_t process = at(id).client->pid(); process != -1) forks.heard(id, process, text);
    handle.output(id, text);
}

void Clients::onPrompt(int id) {
    if (phase == OVER) return;
    Seat& seat = at(id);
    if (phase == RUNNING) return seat.joining ? onForkPrompted(id) : handle.prompted(id);
    seat.attached = seat.client->holds();
    // What a debugger says while it attaches is of interest only when it could not.
    if (seat.attached) startupOutput.drop(id);
    onStarted(id);
}

void Clients::onEnded(int id) {
    Seat& seat = at(id);
    seat.alive = false;
    if (phase == RUNNING) {
        // Its agent has nothing else to do.
        if (seat.parent != -1) seat.client->release();
        forks.ended(id);
        if (seat.joining) return;
        if (errors) errors->ended(id);
        handle.ended(id);
    } else if (phase == STARTING) {
        startupOutput.add(id, "\nthe debugger ended during the start\n");
        onStarted(id);
    }
}

void Clients::onIdentified(int id) {
    if (phase != RUNNING) return;
    if (at(id).joining)
        joinFork(id);
    else
        handle.identified();
}

void Clients::collect() {
    for (std::size_t i = 0; i < seats.size(); ++i) {
        if (seats[i].client && seats[i].client->ended()) onEnded(static_cast<int>(i));
    }
    if (agents) agents->collect();
}

void Clients::listPids(std::vector<pid_t>& pids) const {
    for (const Seat& seat : seats) {
        if (seat.client) pids.push_back(seat.client->pid());
    }
    if (agents) agents->listPids(pids);
}

void Clients::type(int id, const std::string& line) {
    if (errors) errors->typed(id, line);
    at(id).client->type(driver.whole(line));
}

void Clients::resume() {
    for (const Seat& seat : seats) {
        if (seat.client) seat.client->resume();
    }
}

int Clients::askIdentities() {
    return static_cast<int>(std::ranges::count_if(seats, [](const Seat& seat) {
        return seat.alive && seat.client && !seat.joining && seat.client->askIdentity();
    }));
}

int Clients::living() const {
    return static_cast<int>(
        std::ranges::count_if(seats, [](const Seat& seat) { return seat.alive && !seat.joining; }));
}

// --- forked processes

int Clients::newSeat(int parent, pid_t process) {
    Seat seat;
    seat.parent = parent;
    seat.process = process;
    seat.joining = true;
    seats.push_back(std::move(seat));
    return static_cast<int>(seats.size()) - 1;
}

DebuggerStart Clients::startOfFork(int id, pid_t process) const {
    Driver::Launch launch = newLaunch();
    launch.owned = !options.attaches();
    DebuggerStart start = DebuggerStart::of(driver, launch, {}, process);
    start.client = id;
    start.forkMark = driver.forkMark();
    return start;
}

// Why there cannot be one more; nothing when there can.
std::optional<std::string> Clients::refusal(const Limits::Facts& facts) const {
    const auto here = static_cast<int>(std::ranges::count(seats, true, &Seat::alive));
    return Limits::refusal(here + 1, facts, here);
}

// A forked child of a task gets the next free number.
int Clients::adopt(const Forks::Child& child) {
    if (const auto problem = refusal(Limits::facts())) throw std::runtime_error(*problem);
    const int id = static_cast<int>(seats.size());
    auto client = std::make_unique<LocalClient>(loop, handlerOf(id), startOfFork(id, child.pid));
    newSeat(child.parent, child.pid);
    at(id).client = std::move(client);
    return id;
}

void Clients::onForkedAgent(int parent, pid_t process, std::shared_ptr<AgentLink> link) {
    const bool known = parent >= 0 && parent < static_cast<int>(seats.size()) && at(parent).alive &&
                       !at(parent).joining;
    if (phase != RUNNING || !known) return link->close();
    Limits::Facts facts = Limits::facts();
    facts.terminals = std::numeric_limits<long>::max();
    if (const auto problem = refusal(facts)) {
        handle.tell(parent, "forked process " + std::to_string(process) +
                                " runs on without a debugger: " + *problem);
        return link->close();
    }
    const int id = newSeat(parent, process);
    DebuggerStart start = startOfFork(id, process);
    start.argv[0] = options.debuggerThere;
    at(id).client = remote(id, std::move(link), start);
}

void Clients::onForkPrompted(int id) {
    Seat& seat = at(id);
    if (seat.client->holds()) {
        if (!std::exchange(seat.asked, true) && !seat.client->askIdentity()) joinFork(id);
        return;
    }
    // Of one behind an agent, that tells why.
    if (seat.client->pid() != -1 && ProcessTree::parentOf(seat.process) != 0)
        forks.refuse({seat.parent, seat.process}, "the debugger could not attach");
    forks.started(id);
    seat.client->release();
}

void Clients::joinFork(int id) {
    Seat& seat = at(id);
    if (!seat.alive) return;
    seat.joining = false;
    handle.joined(id,
                  seat.client->identity() + "  forked by client " + std::to_string(seat.parent));
    forks.started(id);
}

// --- the end

void Clients::end() {
    phase = OVER;
    patience.cancel();
    forks.stop();
    if (agents) agents->stop();
    for (const Seat& seat : seats) {
        if (seat.client) seat.client->release();
    }
}

bool Clients::releasing() const {
    if (agents && begun > 0 && agents->running()) return true;
    return options.attaches() && std::ranges::any_of(seats, [](const Seat& seat) {
               return seat.client && seat.client->pid() != -1 && seat.client->running();
           });
}

std::optional<std::string> Clients::verdict() const {
    return errors ? errors->verdict() : std::nullopt;
}

#include "frontend/session/forkedclients.h"

#include "backend/clients/localclient.h"
#include "backend/os/processtree.h"
#include "backend/wire/rendezvous.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace {

// At most this many forked processes of this machine are debugged at a time, or as many as there
// are tasks.
constexpr int fewForks = 16;

} // namespace

ForkedClients::ForkedClients(EventLoop& eventLoop, const Options& sessionOptions,
                             const Driver& dialect, std::string sessionsJob, ErrorWatch* errorWatch,
                             Owner& whose)
    : loop(eventLoop),
      options(sessionOptions),
      driver(dialect),
      job(std::move(sessionsJob)),
      errors(errorWatch),
      owner(whose),
      forks(loop, *this, options.forks ? driver.forkMark() : "",
            static_cast<std::size_t>(std::max(fewForks, options.tasks)), ::getpid()) {}

// --- the start

Driver::Launch ForkedClients::newLaunch(const Driver& driver, const Options& options,
                                        const ErrorWatch* errors) {
    Driver::Launch launch;
    launch.cachesIndex = options.indexCache;
    launch.preload = options.mpiLibrary;
    launch.stopsOnAbort = options.stopOnAbort && !options.attaches();
    launch.nonce = Rendezvous::newSecret().substr(0, 16);
    if (errors && driver.marksErrors()) launch.errorMark = errors->mark();
    return launch;
}

DebuggerStart ForkedClients::startOf(pid_t process) const {
    Driver::Launch launch = newLaunch(driver, options, errors);
    launch.owned = !options.attaches();
    DebuggerStart start = DebuggerStart::of(driver, launch, {{"VEX_JOB", job}}, process);
    start.client = nextNumber();
    start.clientVariable = "VEX_TASK";
    start.forkMark = driver.forkMark();
    return start;
}

// Why there cannot be another debugger; nothing when there can.
std::optional<std::string> ForkedClients::refusal() const {
    const auto running =
        owner.livingTasks() + static_cast<int>(std::ranges::count_if(clients, &Fork::alive));
    const Limits::Need need{.tasks = running + 1,
                            .here = running + 1,
                            .started = running,
                            .debugger = Limits::memoryOf(options.debugger)};
    return Limits::refusal(need, Limits::facts());
}

int ForkedClients::adopt(const Forks::Child& child) {
    if (const auto problem = refusal()) throw std::runtime_error(*problem);
    const int number = nextNumber();
    auto client =
        std::make_unique<LocalClient>(loop, *this, startOf(child.pid).with(number, child.pid));
    Fork fork;
    fork.child = child;
    fork.client = std::move(client);
    clients.push_back(std::move(fork));
    return number;
}

void ForkedClients::add(const Forks::Child& child, RemoteNode& node) {
    NodeRecords::Start start{startOf(child.pid), {{nextNumber(), child.pid}}};
    start.common.argv[0] = options.debuggerThere;
    Fork fork;
    fork.child = child;
    fork.node = &node;
    clients.push_back(std::move(fork));
    node.start(start);
}

void ForkedClients::onStarted(int number, const NodeRecords::Started& started) {
    if (started.ended)
        ended(number);
    else if (!over)
        onFirstPrompt(number, started.holds);
}

void ForkedClients::onFirstPrompt(int number, bool holds) {
    Fork& fork = at(number);
    if (holds) {
        const bool wasStarting = std::exchange(fork.phase, Fork::ASKED) == Fork::STARTING;
        if (wasStarting && !(fork.node && fork.node->askIdentities({number}))) join(number);
        return;
    }
    // On another machine, the agent tells why.
    if (!fork.node && ProcessTree::parentOf(fork.child.pid) != 0)
        forks.refuse(fork.child, "the debugger could not attach");
    forks.started(number);
    fork.release(number);
}

void ForkedClients::join(int number) {
    Fork& fork = at(number);
    if (!fork.alive()) return;
    fork.phase = Fork::CLIENT;
    owner.onClientForked(number,
                         fork.identity(number) + "  forked by client " +
                             std::to_string(fork.child.parent) + "; it stands still: on " +
                             std::to_string(number) + ", then continue",
                         fork.node);
    forks.started(number);
}

// --- while they run

void ForkedClients::onOutput(int number, std::string_view text) {
    const bool joined = at(number).joined();
    std::string plain;
    if (errors) text = plain = errors->pass(number, text, joined);
    if (over || !joined) return;
    if (const pid_t process = client(number).pid(); process != -1)
        forks.heard(number, process, text);
    owner.onClientOutput(number, text);
}

void ForkedClients::onPrompt(int number) {
    if (over) return;
    if (at(number).joined())
        owner.onClientPrompt(number);
    else
        onFirstPrompt(number, client(number).holds());
}

void ForkedClients::onRuns(int number, bool runs) {
    if (!over && at(number).joined()) owner.onClientRuns(number, runs);
}

void ForkedClients::ended(int number) {
    Fork& fork = at(number);
    const bool joined = fork.joined();
    fork.phase = joined ? Fork::ENDED : Fork::LOST;
    if (over) return;
    forks.ended(number);
    if (!joined) return;
    // Of those of a node, the node has counted the errors.
    if (errors && !fork.node) errors->ended(number);
    owner.onClientEnded(number);
}

void ForkedClients::onIdentified(const ClientSet& numbers) {
    if (over) return;
    bool joins = false;
    for (const int number : numbers) {
        if (at(number).phase != Fork::ASKED) continue;
        joins = true;
        join(number);
    }
    // Else it is the answer to a question about all that an agent has.
    if (!joins || numbers.size() > 1) owner.onIdentity();
}

void ForkedClients::onTold(int number, const std::string& text) {
    if (!over) owner.tellOfClient(at(number).joined() ? number : at(number).child.parent, text);
}

void ForkedClients::tellOfForks(int parent, const std::string& text) {
    owner.tellOfClient(parent, text);
}

void ForkedClients::collect() {
    // An end may lead to another adoption.
    for (std::size_t i = 0; i < clients.size(); ++i) {
        if (clients[i].client && clients[i].client->ended())
            ended(firstNumber + static_cast<int>(i));
    }
}

void ForkedClients::resume() {
    for (const Fork& fork : clients) {
        if (fork.client) fork.client->resume();
    }
}

bool ForkedClients::alive(int number) const {
    return number >= firstNumber && number < nextNumber() && at(number).phase == Fork::CLIENT;
}

int ForkedClients::living() const {
    return static_cast<int>(std::ranges::count(clients, Fork::CLIENT, &Fork::phase));
}

bool ForkedClients::running() const {
    return std::ranges::any_of(
        clients, [](const Fork& fork) { return fork.client && fork.client->running(); });
}

// --- the end

void ForkedClients::end() {
    over = true;
    forks.stop();
    for (const Fork& fork : clients) {
        if (fork.client) fork.client->release();
    }
}

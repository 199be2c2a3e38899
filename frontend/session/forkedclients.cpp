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
                             const Driver& dialect, ErrorWatch* errorWatch, Owner& whose)
    : loop(eventLoop),
      options(sessionOptions),
      driver(dialect),
      errors(errorWatch),
      owner(whose),
      forks(loop, *this, options.forks ? driver.forkMark() : "",
            static_cast<std::size_t>(std::max(fewForks, options.tasks))) {}

// --- the start

Driver::Launch ForkedClients::newLaunch(const Driver& driver, const ErrorWatch* errors) {
    Driver::Launch launch;
    launch.nonce = Rendezvous::newSecret().substr(0, 16);
    if (errors && driver.marksErrors()) launch.errorMark = errors->mark();
    return launch;
}

DebuggerStart ForkedClients::startOf(pid_t process) const {
    Driver::Launch launch = newLaunch(driver, errors);
    launch.cachesIndex = options.indexCache;
    launch.owned = !options.attaches();
    DebuggerStart start = DebuggerStart::of(driver, launch, {}, process);
    start.client = nextNumber();
    start.forkMark = driver.forkMark();
    return start;
}

// Why there cannot be another debugger; nothing when there can.
std::optional<std::string> ForkedClients::refusal(bool here) const {
    const auto running =
        owner.livingTasks() + static_cast<int>(std::ranges::count_if(clients, &Fork::alive));
    Limits::Need need{.tasks = running + 1};
    if (here) {
        need.here = running + 1;
        need.started = running;
        need.debugger = Limits::memoryOf(options.debugger);
    }
    return Limits::refusal(need, Limits::facts());
}

int ForkedClients::adopt(const Forks::Child& child) {
    if (const auto problem = refusal(true)) throw std::runtime_error(*problem);
    const int number = nextNumber();
    auto client = std::make_unique<LocalClient>(loop, *this, startOf(child.pid));
    clients.push_back({child, std::move(client)});
    return number;
}

void ForkedClients::add(const Forks::Child& child, std::shared_ptr<AgentLink> link) {
    if (const auto problem = refusal(false)) {
        owner.tellOfClient(child.parent, "forked process " + std::to_string(child.pid) +
                                             " runs on without a debugger: " + *problem);
        return link->close();
    }
    DebuggerStart start = startOf(child.pid);
    start.argv[0] = options.debuggerThere;
    auto client = std::make_unique<RemoteClient>(std::move(link), *this,
                                                 static_cast<RemoteClient::Owner&>(*this), start);
    clients.push_back({child, std::move(client)});
}

void ForkedClients::onFirstPrompt(int number) {
    Fork& fork = at(number);
    if (fork.client->holds()) {
        if (std::exchange(fork.phase, Fork::ASKED) == Fork::STARTING && !fork.client->askIdentity())
            join(number);
        return;
    }
    // On another machine, the agent tells why.
    if (fork.client->pid() != -1 && ProcessTree::parentOf(fork.child.pid) != 0)
        forks.refuse(fork.child, "the debugger could not attach");
    forks.started(number);
    fork.client->release();
}

void ForkedClients::join(int number) {
    Fork& fork = at(number);
    if (!fork.alive()) return;
    fork.phase = Fork::CLIENT;
    owner.onClientForked(number, fork.client->identity() + "  forked by client " +
                                     std::to_string(fork.child.parent));
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
        onFirstPrompt(number);
}

void ForkedClients::onEnded(int number) {
    Fork& fork = at(number);
    const bool joined = fork.joined();
    fork.phase = joined ? Fork::ENDED : Fork::LOST;
    if (over) return;
    // Its agent has nothing else to do.
    fork.client->release();
    forks.ended(number);
    if (!joined) return;
    if (errors) errors->ended(number);
    owner.onClientEnded(number);
}

void ForkedClients::onIdentified(int number) {
    if (over) return;
    if (at(number).joined())
        owner.onIdentity();
    else
        join(number);
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
        if (clients[i].client->ended()) onEnded(firstNumber + static_cast<int>(i));
    }
}

void ForkedClients::resume() {
    for (const Fork& fork : clients)
        fork.client->resume();
}

int ForkedClients::askIdentities() {
    return static_cast<int>(std::ranges::count_if(clients, [](const Fork& fork) {
        return fork.phase == Fork::CLIENT && fork.client->askIdentity();
    }));
}

bool ForkedClients::alive(int number) const {
    return number >= firstNumber && number < nextNumber() && at(number).phase == Fork::CLIENT;
}

int ForkedClients::living() const {
    return static_cast<int>(std::ranges::count(clients, Fork::CLIENT, &Fork::phase));
}

bool ForkedClients::running() const {
    return std::ranges::any_of(clients, [](const Fork& fork) {
        return fork.client->pid() != -1 && fork.client->running();
    });
}

// --- the end

void ForkedClients::end() {
    over = true;
    forks.stop();
    for (const Fork& fork : clients)
        fork.client->release();
}

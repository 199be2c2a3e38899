#include "agent/nodeagent.h"

#include "agent/nodedoor.h"
#include "backend/os/limits.h"
#include "backend/os/standardstreams.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

// By then, a front end that reads has heard all.
constexpr auto maxFarewell = std::chrono::seconds(30);

std::size_t processors() {
    return static_cast<std::size_t>(std::max(2L, ::sysconf(_SC_NPROCESSORS_ONLN)));
}

} // namespace

NodeAgent::NodeAgent(const Rendezvous& where, Descriptor first, pid_t keeper, Descriptor atDoor)
    : listener(std::move(atDoor)),
      signals(loop, {SIGTERM, SIGINT, SIGHUP}, [this](int /*number*/) { end(0, ""); }),
      server(loop, where, static_cast<NodeServer::Owner&>(*this)),
      starts(processors()),
      leftovers(loop),
      door(loop),
      pause(loop),
      farewell(loop) {
    add(std::move(first), keeper);
    if (!listener) return;
    door.watch(listener.get());
    waitAtDoor();
}

void NodeAgent::run() { loop.run(); }

void NodeAgent::waitAtDoor() {
    door.whenReadable([this] {
        while (accept()) {
        }
        // No descriptors are left, say: keepers that wait go on waiting.
        if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return waitAtDoor();
        pause.after(std::chrono::milliseconds(100), [this] { waitAtDoor(); });
    });
}

// False when nobody is there, or errno says why not.
bool NodeAgent::accept() {
    Descriptor socket(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!socket) return false;
    const auto peer = NodeDoor::peerOf(socket);
    if (peer && peer->uid == ::geteuid()) add(std::move(socket), peer->pid);
    return true;
}

void NodeAgent::add(Descriptor socket, pid_t keeper) {
    const auto link = std::make_shared<AgentLink>(loop, std::move(socket), AgentRecord::maxFrame);
    auto task = std::make_unique<Task>(Task::Node{loop, server, starts, leftovers}, link, keeper,
                                       static_cast<Task::Owner&>(*this));
    tasks.emplace(task.get(), std::move(task));
}

void NodeAgent::end(int status, const std::string& text) {
    if (over) return;
    over = End{status, text};
    for (const auto& [key, task] : tasks)
        task->end(status, text);
}

void NodeAgent::onTask(Task& task) {
    if (over) return task.end(over->status, over->text);
    for (const NodeRecords::Task& each : task.description()) {
        // The session refuses a second one of a rank.
        ranks.try_emplace(each.rank, &task);
        server.add(each);
    }
}

void NodeAgent::onTaskOver(Task& task) {
    loop.post([this, which = &task] {
        const auto isIts = [which](const auto& each) { return each.second == which; };
        std::erase_if(ranks, isIts);
        std::erase_if(clients, isIts);
        tasks.erase(which);
        while (listener && accept()) {
        }
        if (tasks.empty()) leave();
    });
}

// A keeper that comes too late finds nobody, and looks again.
void NodeAgent::leave() {
    door.release();
    pause.cancel();
    listener.reset();
    farewell.after(maxFarewell, [this] { loop.stop(); });
    server.finish();
}

// A forked process is of the task that has offered it, any other client of that of its rank.
void NodeAgent::onStart(const DebuggerStart& start, bool forked) {
    Task* found = nullptr;
    if (forked) {
        const auto at = std::ranges::find_if(
            tasks, [&start](const auto& each) { return each.first->offers(start.attach); });
        if (at != tasks.end()) found = at->first;
    } else if (const auto at = ranks.find(start.client); at != ranks.end()) {
        found = at->second;
    }
    if (!found) return server.failed(start.client, "", "its task is over");
    clients[start.client] = found;
    found->start(start);
}

void NodeAgent::onOutput(int client, pid_t debugger, std::string_view text) {
    if (const auto at = clients.find(client); at != clients.end())
        at->second->heard(client, debugger, text);
}

void NodeAgent::onPrompted(int client) {
    if (const auto at = clients.find(client); at != clients.end()) at->second->prompted(client);
}

void NodeAgent::onEnded(int client) {
    if (const auto at = clients.find(client); at != clients.end()) at->second->ended(client);
}

void NodeAgent::onForkLeft(pid_t process) {
    for (const auto& [key, task] : tasks)
        task->forkLeft(process);
}

void NodeAgent::onOver(const std::string& problem) {
    if (tasks.empty()) return loop.stop();
    if (problem.empty()) return end(0, "");
    end(1, "vexagent: cannot connect to the front end: " + problem + "\n");
}

void NodeAgent::settle(const Descriptor& first, const Descriptor& listener) {
    ::setsid();
    ::prctl(PR_SET_NAME, "vexagent-node");
    StandardStreams::detach();
    std::array<int, 2> kept{first.get(), listener.get()};
    std::ranges::sort(kept);
    unsigned next = 3;
    for (const int each : kept) {
        if (each < 3) continue;
        const auto fd = static_cast<unsigned>(each);
        if (fd > next) ::close_range(next, fd - 1, 0);
        next = fd + 1;
    }
    ::close_range(next, ~0U, 0);
    (void)!::chdir("/");
    // A task's processors are for the task.
    cpu_set_t all;
    CPU_ZERO(&all);
    for (std::size_t i = 0; i < CPU_SETSIZE; ++i)
        CPU_SET(i, &all);
    ::sched_setaffinity(0, sizeof all, &all);
    Limits::liftDescriptors();
}

#include "agent/keeper.h"

#include "backend/clients/detachment.h"
#include "backend/os/descriptorpassing.h"
#include "backend/os/executables.h"
#include "backend/os/limits.h"
#include "backend/os/processtree.h"
#include "backend/os/tracing.h"
#include "common/brokenconnection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

// By these, a launcher ends a task.
constexpr int endings[] = {SIGTERM, SIGINT, SIGHUP};

sigset_t heardSignals() {
    sigset_t heard;
    ::sigemptyset(&heard);
    ::sigaddset(&heard, SIGCHLD);
    for (const int number : endings)
        ::sigaddset(&heard, number);
    return heard;
}

Descriptor signalDescriptor() {
    const sigset_t heard = heardSignals();
    ::sigprocmask(SIG_BLOCK, &heard, nullptr);
    Descriptor result(::signalfd(-1, &heard, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!result) throw std::system_error(errno, std::generic_category(), "signalfd");
    return result;
}

} // namespace

Keeper::Keeper(Descriptor toNode, pid_t ownNodeAgent)
    : link(std::move(toNode)), signals(signalDescriptor()), nodeAgent(ownNodeAgent) {
    // What loses its parent below this process comes here.
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    Limits::liftDescriptors();
}

int Keeper::run() {
    for (;;) {
        pollfd ready[] = {{link.get(), POLLIN, 0}, {signals.get(), POLLIN, 0}};
        if (::poll(ready, 2, -1) == -1) continue;
        if (ready[1].revents != 0) onSignals();
        if (ready[0].revents != 0 && !receive()) return loseNode();
        if (over) return finish();
    }
}

bool Keeper::receive() {
    std::array<char, 4096> buffer;
    const ssize_t got = ::recv(link.get(), buffer.data(), buffer.size(), 0);
    if (got == -1 && (errno == EINTR || errno == EAGAIN)) return true;
    if (got <= 0) return false;
    reader.feed({buffer.data(), static_cast<std::size_t>(got)});
    try {
        while (const auto body = reader.body())
            obey(AgentRecord::unpack(*body));
    } catch (const BrokenConnection&) {
        return false;
    }
    return true;
}

void Keeper::obey(const AgentRecord& record) {
    const KeeperOrder order = KeeperOrder::of(record);
    const auto at = debuggers.find(order.client);
    switch (record.type) {
    case AgentRecord::FORK:
        return start(order);
    case AgentRecord::SIGNAL:
        if (at == debuggers.end()) return;
        if (order.number == SIGINT) at->second.interruptedAt = Clock::now();
        if (order.group)
            at->second.process.signalGroup(order.number);
        else
            at->second.process.signal(order.number);
        return;
    case AgentRecord::FINISH:
        over = order;
        return;
    default:
        throw BrokenConnection();
    }
}

void Keeper::start(const KeeperOrder& order) {
    const KeeperStarted result = tryToStart(order);
    if (!result.problem.empty()) return send(result.record());
    // They are the node's agent's alone from here on: it hangs up when it ends.
    const auto terminals = debuggers.at(order.client).process.takeTerminals();
    if (!DescriptorPassing::send(link.get(), result.record().frames(),
                                 {terminals.debugger.get(), terminals.program.get()}))
        ::shutdown(link.get(), SHUT_RDWR); // as if it had gone, which the loop sees
}

KeeperStarted Keeper::tryToStart(const KeeperOrder& order) {
    DebuggerStart start = order.start;
    KeeperStarted result;
    result.client = order.client;
    if (!start.folder.empty() && ::chdir(start.folder.c_str()) == -1)
        result.notice =
            "cannot go to the directory " + start.folder + " there: " + std::strerror(errno) + "\n";
    // The launcher may have left the task a descriptor to talk to it by.
    start.inherits = start.attach == 0;
    if (start.throughShells) start.attach = ProcessTree::programOf(start.attach);
    result.target = start.attach;
    try {
        if (start.attach != 0)
            Tracing::checkAttach(start.attach);
        else if (!Tracing::works())
            throw std::runtime_error("tracing processes (ptrace) is refused there");
        start.argv.at(0) = Executables::debugger(start.argv.at(0));
        const bool stopped = start.attach == 0 || Tracing::isStopped(start.attach);
        const auto at = debuggers.try_emplace(order.client, start).first;
        result.pid = at->second.process.pid();
        if (!stopped) ran.push_back(start.attach);
    } catch (const std::exception& error) {
        result.problem = error.what();
    }
    return result;
}

void Keeper::onSignals() {
    signalfd_siginfo what;
    bool childEnded = false;
    while (::read(signals.get(), &what, sizeof what) == sizeof what) {
        if (what.ssi_signo == SIGCHLD)
            childEnded = true;
        else
            send({AgentRecord::LEAVE, ""});
    }
    if (childEnded) collect();
}

void Keeper::collect() {
    if (nodeAgent != -1 && ::waitpid(nodeAgent, nullptr, WNOHANG) == nodeAgent) nodeAgent = -1;
    std::vector<pid_t> known;
    bool some = false;
    for (auto each = debuggers.begin(); each != debuggers.end();) {
        auto& [client, kept] = *each;
        if (!kept.process.ended()) {
            known.push_back(kept.process.pid());
            ++each;
            continue;
        }
        some = true;
        send(KeeperOrder::gone(client));
        each = debuggers.erase(each);
    }
    // What its program has started and left behind ends with the last debugger.
    if (some && known.empty()) killRest();
    std::ranges::sort(known);
    ProcessTree::reapStrangers(known);
}

void Keeper::killRest() { ProcessTree::killDescendants(::getpid(), nodeAgent); }

int Keeper::finish() {
    std::fputs(over->text.c_str(), stderr);
    killRest();
    debuggers.clear();
    link.reset();
    awaitNode();
    return over->status;
}

// The node's agent serves the tasks of its host until the last one is over; where a launcher takes
// the end of a task's process for the end of all that it has started, that must not be earlier.
void Keeper::awaitNode() {
    const sigset_t heard = heardSignals();
    while (nodeAgent != -1 && ::waitpid(nodeAgent, nullptr, WNOHANG) == 0) {
        int number = 0;
        ::sigwait(&heard, &number);
        if (number != SIGCHLD) return;
    }
}

// The terminals have hung up with it. It may have given up this keeper alone, and serve others.
int Keeper::loseNode() {
    for (auto& [client, each] : debuggers) {
        if (each.attaches && Clock::now() >= each.interruptedAt + Detachment::stopping)
            each.process.signal(SIGINT);
    }
    Detachment::complete({.except = nodeAgent, .ran = ran});
    // That has reaped them.
    for (auto& [client, each] : debuggers)
        each.process.ended();
    link.reset(); // a node's agent that goes on learns of it now
    awaitNode();
    return 1;
}

void Keeper::send(const AgentRecord& record) {
    // When it fails, the node's agent has gone, which the loop sees.
    DescriptorPassing::send(link.get(), record.frames(), {});
}

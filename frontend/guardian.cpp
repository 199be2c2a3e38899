#include "frontend/guardian.h"

#include "frontend/frontpart.h"
#include "frontend/processtree.h"
#include "frontend/rendezvous.h"
#include "frontend/tracing.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

using Time = std::chrono::steady_clock;
constexpr auto patience = std::chrono::seconds(3);

void reapAll() {
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
}

bool nothingLeftWithin(Time::duration span) {
    const auto end = Time::now() + span;
    for (;;) {
        reapAll();
        if (ProcessTree::descendants(::getpid(), -1).empty()) return true;
        if (Time::now() >= end) return false;
        ::usleep(20000);
    }
}

// The debuggers were interrupted by the end of the session's process. A task that blocks the
// interrupt and runs stops by SIGSTOP; a debugger that were killed now would leave its breakpoints.
void letGoOf(const std::vector<Target>& targets) {
    if (targets.empty() || nothingLeftWithin(patience)) return;
    const auto ours = ProcessTree::descendants(::getpid(), -1);
    std::vector<pid_t> stopped;
    for (const Target& target : targets) {
        const pid_t tracer = Tracing::tracerOf(target.pid);
        if (tracer != 0 && std::ranges::find(ours, tracer) != ours.end())
            stopped.push_back(target.pid);
    }
    for (const pid_t each : stopped)
        ::kill(each, SIGSTOP);
    nothingLeftWithin(patience);
    for (const pid_t each : stopped)
        ::kill(each, SIGCONT);
}

} // namespace

int Guardian::run(Session& session, Channel line, const std::vector<Target>& targets, bool launched,
                  const std::function<int(Session& session, Channel line)>& serve) {
    ::setsid();
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    sigset_t heard, before;
    ::sigemptyset(&heard);
    for (const int number : {SIGCHLD, SIGTERM, SIGINT, SIGQUIT})
        ::sigaddset(&heard, number);
    ::sigprocmask(SIG_BLOCK, &heard, &before);
    std::signal(SIGHUP, SIG_IGN);
    const pid_t self = ::getpid();
    const pid_t child = ::fork();
    if (child == -1)
        throw std::system_error(errno, std::generic_category(), "cannot start the session");
    if (child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != self) return 128 + SIGTERM;
        ::sigprocmask(SIG_SETMASK, &before, nullptr);
        return serve(session, std::move(line));
    }
    session.stopListening();
    line.close();
    // What the session has to say at its start is said by itself.
    FrontPart::leaveTerminal();
    int status = 0;
    for (;;) {
        int number = 0;
        ::sigwait(&heard, &number);
        if (number != SIGCHLD) {
            ::kill(child, number == SIGQUIT ? SIGKILL : SIGTERM);
            continue;
        }
        // The session's own children come here only when it has ended.
        if (::waitpid(child, &status, WNOHANG) == child) break;
    }
    letGoOf(targets);
    if (launched) nothingLeftWithin(patience);
    ProcessTree::killDescendants(::getpid(), -1);
    reapAll();
    RendezvousFile::removeOf(child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

#include "agent/agent.h"
#include "agent/agentoptions.h"
#include "backend/clients/detachment.h"
#include "backend/jobs/remotetasks.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

Rendezvous readRendezvous(const std::string& path) {
    if (path == "-") return Rendezvous::parse(std::cin);
    std::ifstream file(path);
    if (!file) throw std::runtime_error("cannot read " + path + "; is the home directory shared?");
    return Rendezvous::parse(file);
}

int serve(const std::string& path) {
    const Rendezvous where = readRendezvous(path);
    return Agent(where, Rank::find(where)).run();
}

// Waits for the agent and passes signals on to it. When it was killed, what it ran is now below
// this process, and goes as well, once it has let go of what it attached to.
int guard(pid_t agent, const sigset_t& watched) {
    int status = 0;
    for (;;) {
        int number = 0;
        ::sigwait(&watched, &number);
        if (number != SIGCHLD) {
            ::kill(agent, SIGTERM);
            continue;
        }
        for (pid_t ended; (ended = ::waitpid(-1, &status, WNOHANG)) > 0;) {
            if (ended != agent) continue;
            Aftermath::clear(false);
            return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
        }
    }
}

// Two processes: a launcher ends tasks by killing the process that it has started and its process
// group. The agent proper stands in a session of its own, is told when that happens, and takes
// down all that is below it; and so the other way round.
int run(const std::string& path) {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    sigset_t watched, before;
    ::sigemptyset(&watched);
    for (int number : {SIGCHLD, SIGTERM, SIGINT, SIGHUP})
        ::sigaddset(&watched, number);
    ::sigprocmask(SIG_BLOCK, &watched, &before);
    std::signal(SIGPIPE, SIG_IGN);
    const pid_t parent = ::getpid();
    const pid_t agent = ::fork();
    if (agent == -1) throw std::system_error(errno, std::generic_category(), "fork");
    if (agent > 0) return guard(agent, watched);
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) return 1;
    ::setsid();
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
    return serve(path);
}

} // namespace

int main(int argc, char** argv) {
    AgentOptions options;
    const AgentOptions::Outcome outcome = options.parse(argc, argv);
    if (!outcome.proceed) {
        std::fputs(outcome.text.c_str(), outcome.status == 0 ? stdout : stderr);
        return outcome.status;
    }
    try {
        if (!options.manager.empty()) {
            RemoteTasks::list(options.manager, std::cout);
            return 0;
        }
        return run(options.rendezvous);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vexagent: %s\n", error.what());
    }
    return 1;
}

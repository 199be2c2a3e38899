#include "agent/agent.h"
#include "agent/agentoptions.h"
#include "backend/clients/guard.h"
#include "backend/jobs/remotetasks.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
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

// Two processes: a launcher ends tasks by killing the process that it has started and its process
// group. The agent proper stands in a session of its own, is told when that happens, and takes
// down all that is below it; and so the other way round.
int run(const std::string& path) {
    std::signal(SIGPIPE, SIG_IGN);
    const Guard guard({SIGTERM, SIGINT, SIGHUP});
    if (!guard.isChild()) {
        const int status = guard.wait(false);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
    }
    if (guard.isOrphan()) return 1;
    ::setsid();
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

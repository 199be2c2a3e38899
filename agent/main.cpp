#include "agent/agent.h"
#include "backend/clients/guard.h"
#include "backend/jobs/remotetasks.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>
#include <sys/wait.h>
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
    CLI::App app(
        "Runs the debugger of one task for vex. Started by vex through the launcher of a job.",
        "vexagent");
    app.set_version_flag("-V,--version", "vexagent " VEX_VERSION);
    std::string path, manager;
    CLI::Option_group* what = app.add_option_group("what to do");
    what->add_option("--rendezvous", path,
                     "The file that says how to reach vex; - for the standard input");
    what->add_option("--tasks-of", manager,
                     "List the tasks of this process manager of MPICH's: host:port/number");
    what->require_option(1);
    CLI11_PARSE(app, argc, argv);
    try {
        if (!manager.empty()) {
            RemoteTasks::list(manager, std::cout);
            return 0;
        }
        return run(path);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vexagent: %s\n", error.what());
    }
    return 1;
}

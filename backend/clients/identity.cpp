#include "backend/clients/identity.h"

#include "backend/os/processtree.h"
#include "backend/os/rankvariables.h"
#include "backend/os/thismachine.h"
#include "backend/os/tracing.h"

#include <filesystem>

namespace {

// The launchers' own variables first: a job under one of them may itself run under a session.
std::string rankOf(pid_t pid) {
    if (const int rank = RankVariables::rankOf(pid); rank >= 0) return std::to_string(rank);
    return ProcessTree::variable(pid, "VEX_TASK").value_or("");
}

} // namespace

Identity Identity::ofProcess(pid_t pid) {
    Identity result;
    result.host = ThisMachine::hostName();
    if (pid <= 0) return result;
    result.pid = pid;
    result.rank = rankOf(pid);
    std::error_code fault;
    const auto path = std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", fault);
    if (!fault) result.program = path.filename().string();
    return result;
}

Identity Identity::underDebugger(pid_t debugger) {
    for (pid_t child : ProcessTree::children(debugger)) {
        if (Tracing::tracerOf(child) > 0) return ofProcess(child);
        // A debugger may leave it to a server that it has started.
        for (pid_t below : ProcessTree::children(child)) {
            if (Tracing::tracerOf(below) == child) return ofProcess(below);
        }
    }
    return ofProcess(-1);
}

std::string Identity::str() const {
    return "rank " + (rank.empty() ? "-" : rank) + "  host " + host + "  pid " +
           (pid == -1 ? "-" : std::to_string(pid)) + "  " +
           (pid != -1         ? program
            : program.empty() ? "no process"
                              : program + ", not running");
}

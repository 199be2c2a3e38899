#include "backend/clients/identity.h"

#include "backend/os/processtree.h"
#include "backend/os/tracing.h"

#include <climits>

#include <filesystem>
#include <iterator>
#include <sstream>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

// The launchers' own variables first: a job under one of them may itself run under a session.
std::string rankOf(pid_t pid) {
    const std::string environment = std::string(1, '\0') + ProcessTree::fileOf(pid, "environ");
    for (const char* name :
         {"OMPI_COMM_WORLD_RANK", "PMIX_RANK", "PMI_RANK", "SLURM_PROCID", "VEX_TASK"}) {
        const std::string key = std::string(1, '\0') + name + "=";
        const std::size_t at = environment.find(key);
        if (at == std::string::npos) continue;
        const std::size_t begin = at + key.size();
        return environment.substr(begin, environment.find('\0', begin) - begin);
    }
    return "";
}

std::vector<pid_t> childrenOf(pid_t pid) {
    std::istringstream text(ProcessTree::fileOf(pid, "task/" + std::to_string(pid) + "/children"));
    return {std::istream_iterator<pid_t>(text), {}};
}

} // namespace

Identity Identity::ofProcess(pid_t pid) {
    Identity result;
    char name[HOST_NAME_MAX + 1] = "";
    ::gethostname(name, sizeof name - 1);
    result.host = name;
    if (pid <= 0) return result;
    result.pid = pid;
    result.rank = rankOf(pid);
    std::error_code fault;
    const auto path = std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", fault);
    if (!fault) result.program = path.filename().string();
    return result;
}

Identity Identity::underDebugger(pid_t debugger) {
    for (pid_t child : childrenOf(debugger)) {
        if (Tracing::tracerOf(child) > 0) return ofProcess(child);
        // A debugger may leave it to a server that it has started.
        for (pid_t below : childrenOf(child)) {
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

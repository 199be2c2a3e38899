#include "backend/clients/identity.h"

#include "backend/os/processtree.h"
#include "backend/os/rankvariables.h"
#include "backend/os/thismachine.h"
#include "backend/os/tracing.h"

#include <array>
#include <elf.h>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace {

// The launchers' own variables first: a job under one of them may itself run under a session.
std::string rankOf(pid_t pid) {
    if (const int rank = RankVariables::rankOf(pid); rank >= 0) return std::to_string(rank);
    return ProcessTree::variable(pid, "VEX_TASK").value_or("");
}

// The core file among the open files of a debugger: its ELF header says so.
std::string coreOf(pid_t debugger) {
    namespace fs = std::filesystem;
    std::error_code fault;
    for (fs::directory_iterator at("/proc/" + std::to_string(debugger) + "/fd", fault), end;
         !fault && at != end; at.increment(fault)) {
        std::error_code gone;
        if (!fs::is_regular_file(at->path(), gone)) continue;
        std::array<char, 18> head{};
        std::ifstream(at->path(), std::ios::binary).read(head.data(), head.size());
        // The type is of two bytes, in the order that the sixth byte tells.
        const char type = head[5] == ELFDATA2LSB ? head[16] : head[17];
        if (std::string_view(head.data(), SELFMAG) == ELFMAG && type == ET_CORE)
            return fs::read_symlink(at->path(), gone).filename().string();
    }
    return "";
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
    if (const pid_t elsewhere = Tracing::tracedBy(debugger); elsewhere != -1)
        return ofProcess(elsewhere);
    Identity result = ofProcess(-1);
    result.core = coreOf(debugger);
    return result;
}

std::string Identity::str() const {
    return "rank " + (rank.empty() ? "-" : rank) + "  host " + host + "  pid " +
           (pid == -1 ? "-" : std::to_string(pid)) + "  " +
           (pid != -1         ? program
            : !core.empty()   ? program + ", core file " + core
            : program.empty() ? "no process"
                              : program + ", not running");
}

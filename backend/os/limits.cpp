#include "backend/os/limits.h"

#include "backend/os/processtree.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <unistd.h>

namespace {

// Each debugger has its own terminal and its program's; both are held open, and one from both ends.
constexpr int terminalsOfTask = 2;
constexpr int descriptorsOfTask = 3;
// The consoles' connections, and what a debugger takes while it is being started.
constexpr int otherDescriptors = 64;
// The debugger and the program. Threads count as well, but a debugger does without those that it
// cannot have.
constexpr int processesOfTask = 2;

rlimit before{RLIM_INFINITY, RLIM_INFINITY};
bool lifted = false;

std::optional<long> numberIn(const char* path) {
    std::ifstream file(path);
    long number = 0;
    return file >> number ? std::optional(number) : std::nullopt;
}

// How many threads this user has: each counts as a process.
rlim_t usersProcesses() {
    rlim_t count = 0;
    for (const pid_t id : ProcessTree::everyone()) {
        long user = -1, threads = 0;
        std::istringstream lines(ProcessTree::fileOf(id, "status"));
        for (std::string line; std::getline(lines, line);) {
            std::istringstream words(line);
            std::string name;
            long value = 0;
            words >> name >> value;
            if (name == "Uid:") user = value;
            if (name == "Threads:") threads = value;
        }
        if (user == static_cast<long>(::getuid())) count += static_cast<rlim_t>(threads);
    }
    return count;
}

// What can be had without taking it from another process, swap space included.
std::uint64_t availableMemory() {
    std::ifstream file("/proc/meminfo");
    std::uint64_t total = 0;
    bool found = false;
    for (std::string name, rest; file >> name; std::getline(file, rest)) {
        std::uint64_t kilobytes = 0;
        if (name != "MemAvailable:" && name != "SwapFree:") continue;
        file >> kilobytes;
        total += kilobytes * 1024;
        found = true;
    }
    return found ? total : UINT64_MAX;
}

std::string megabytes(std::uint64_t bytes) { return std::to_string(bytes >> 20) + " MB"; }

} // namespace

Limits::Facts Limits::facts() {
    Facts facts;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) facts.descriptors = limit.rlim_cur;
    const auto maxTerminals = numberIn("/proc/sys/kernel/pty/max");
    const auto used = numberIn("/proc/sys/kernel/pty/nr");
    facts.usedTerminals = used.value_or(0);
    facts.terminals = maxTerminals && used ? std::max(0L, *maxTerminals - *used)
                                           : std::numeric_limits<long>::max();
    if (::getrlimit(RLIMIT_NPROC, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
        facts.usedProcesses = usersProcesses();
        facts.processes = limit.rlim_cur - std::min(limit.rlim_cur, facts.usedProcesses);
        facts.maxProcesses = limit.rlim_max;
    }
    facts.memory = availableMemory();
    return facts;
}

std::uint64_t Limits::memoryOf(const std::string& debugger) {
    std::error_code fault;
    const auto size = std::filesystem::file_size(debugger, fault);
    return fault ? 0 : size;
}

std::optional<std::string> Limits::refusal(const Need& need, const Facts& facts) {
    const std::string who =
        need.tasks == 1 ? "1 task needs " : std::to_string(need.tasks) + " tasks need ";
    const std::string more = " The administrator can allow more: sudo ";
    const auto toStart = static_cast<rlim_t>(std::max(0, need.here - need.started));
    const auto terminals = static_cast<long>(toStart * terminalsOfTask);
    if (terminals > facts.terminals)
        return who + std::to_string(terminals) + " pseudo-terminals, and only " +
               std::to_string(facts.terminals) + " are free here." + more +
               "sysctl kernel.pty.max=" + std::to_string(facts.usedTerminals + terminals);
    const auto here = static_cast<rlim_t>(need.here);
    const rlim_t descriptors =
        here * descriptorsOfTask + static_cast<rlim_t>(need.hosts) + otherDescriptors;
    if (descriptors > facts.descriptors)
        return who + std::to_string(descriptors) + " open files, and only " +
               std::to_string(facts.descriptors) + " are allowed here (ulimit -Hn)." + more +
               "prlimit --pid $$ --nofile=" + std::to_string(descriptors);
    const rlim_t processes = toStart * processesOfTask;
    if (processes > facts.processes) {
        const rlim_t wanted = facts.usedProcesses + processes;
        const std::string number = std::to_string(wanted);
        return who + std::to_string(processes) + " processes, and only " +
               std::to_string(facts.processes) + " more are allowed here (ulimit -u)." +
               (wanted <= facts.maxProcesses ? " Allow more: ulimit -u " + number
                                             : more + "prlimit --pid $$ --nproc=" + number);
    }
    const std::uint64_t memory = toStart * need.debugger;
    if (memory > facts.memory)
        return who + "at least " + megabytes(memory) + " of memory for debuggers, and only " +
               megabytes(facts.memory) +
               " are free here. Let a launcher spread them over more hosts: vex --launch";
    return std::nullopt;
}

void Limits::liftDescriptors() {
    if (lifted || ::getrlimit(RLIMIT_NOFILE, &before) == -1) return;
    const rlimit raised{before.rlim_max, before.rlim_max};
    lifted = ::setrlimit(RLIMIT_NOFILE, &raised) == 0;
}

void Limits::restoreDescriptors() {
    if (lifted) ::setrlimit(RLIMIT_NOFILE, &before);
}

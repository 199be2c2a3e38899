#include "backend/os/limits.h"

#include <algorithm>
#include <fstream>
#include <limits>

namespace {

// Each debugger has its own terminal and its program's; both are held open, and one from both ends.
constexpr int terminalsOfTask = 2;
constexpr int descriptorsOfTask = 3;
// The consoles' connections, and what a debugger takes while it is being started.
constexpr int otherDescriptors = 64;

rlimit before{RLIM_INFINITY, RLIM_INFINITY};
bool lifted = false;

std::optional<long> numberIn(const char* path) {
    std::ifstream file(path);
    long number = 0;
    return file >> number ? std::optional(number) : std::nullopt;
}

} // namespace

Limits::Facts Limits::facts() {
    Facts facts;
    rlimit limit{};
    facts.descriptors =
        ::getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : rlim_t(RLIM_INFINITY);
    const auto maxTerminals = numberIn("/proc/sys/kernel/pty/max");
    const auto used = numberIn("/proc/sys/kernel/pty/nr");
    facts.terminals = maxTerminals && used ? std::max(0L, *maxTerminals - *used)
                                           : std::numeric_limits<long>::max();
    return facts;
}

std::optional<std::string> Limits::refusal(int tasks, const Facts& facts, int running) {
    const std::string number = std::to_string(tasks);
    const long terminals = long{tasks - running} * terminalsOfTask;
    if (terminals > facts.terminals)
        return number + " tasks need " + std::to_string(terminals) +
               " pseudo-terminals, and only " + std::to_string(facts.terminals) +
               " are free here. The administrator can allow more: sysctl kernel.pty.max";
    const rlim_t descriptors = rlim_t(tasks) * descriptorsOfTask + otherDescriptors;
    if (descriptors > facts.descriptors)
        return number + " tasks need " + std::to_string(descriptors) + " open files, and only " +
               std::to_string(facts.descriptors) + " are allowed here (ulimit -Hn).";
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

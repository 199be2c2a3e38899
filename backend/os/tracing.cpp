#include "backend/os/tracing.h"

#include "backend/os/clock.h"
#include "backend/os/processtree.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <pwd.h>
#include <sstream>
#include <stdexcept>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using ProcessTree::statusField;

// Runs one request in a child process; what it traces is let go when the child ends.
bool childMay(__ptrace_request request, pid_t pid) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(::ptrace(request, pid, nullptr, nullptr) == -1 ? 1 : 0);
    int status = 0;
    if (child == -1 || ::waitpid(child, &status, 0) != child) return true;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::string userName(uid_t user) {
    const passwd* entry = ::getpwuid(user);
    return entry ? entry->pw_name : "user " + std::to_string(user);
}

Tracing::Facts factsOf(pid_t pid) {
    Tracing::Facts facts;
    const std::string state = statusField(pid, "State");
    facts.exists = !state.empty();
    facts.zombie = state.starts_with('Z') || state.starts_with('X');
    if (const pid_t group = std::atoi(statusField(pid, "Tgid").c_str()); facts.exists)
        facts.processOf = group == pid ? -1 : group;
    const std::string user = statusField(pid, "Uid"); // real, effective, saved, file system
    std::istringstream numbers(user);
    for (uid_t each; facts.owner.empty() && numbers >> each;) {
        if (each != ::getuid()) facts.owner = userName(each);
    }
    facts.tracer = Tracing::tracerOf(pid);
    if (facts.tracer > 0) facts.tracerName = statusField(facts.tracer, "Name");
    std::ifstream("/proc/sys/kernel/yama/ptrace_scope") >> facts.yamaScope;
    return facts;
}

} // namespace

bool Tracing::works() { return childMay(PTRACE_TRACEME, 0); }

std::string Tracing::refusal(pid_t pid, const Facts& facts) {
    const std::string number = std::to_string(pid);
    const std::string start = "cannot attach to process " + number + ": ";
    if (!facts.exists) return start + "there is no such process. Look for it with: ps -u $USER";
    if (facts.zombie) return start + "it has ended.";
    if (facts.processOf > 0)
        return start + "it is a thread of process " + std::to_string(facts.processOf) +
               "; name that one.";
    if (facts.owner == "root") return start + "it belongs to root, as which vex does not run.";
    if (!facts.owner.empty())
        return start + "it belongs to " + facts.owner + ". Run vex as " + facts.owner + ".";
    if (facts.tracer > 0)
        return start + "process " + std::to_string(facts.tracer) + " (" + facts.tracerName +
               ") traces it already. End that one first.";
    if (facts.yamaScope >= 3)
        return start + "this system allows no attaching until it is booted again "
                       "(kernel.yama.ptrace_scope is 3). Start the program with vex instead.";
    if (facts.yamaScope == 2)
        return start + "this system lets only administrators attach (kernel.yama.ptrace_scope is "
                       "2). Start the program with vex instead.";
    if (facts.yamaScope == 1)
        return start + "this system lets a debugger attach to its own children only. Allow more "
                       "with: sudo sysctl kernel.yama.ptrace_scope=0, or start the program with "
                       "vex.";
    return start + "this system refuses it. In a container, start that with "
                   "--cap-add=SYS_PTRACE.";
}

void Tracing::checkAttach(pid_t pid) {
    if (pid == ::getpid()) throw std::runtime_error("cannot attach to itself.");
    const Facts facts = factsOf(pid);
    if (!facts.exists || facts.processOf > 0 || !childMay(PTRACE_SEIZE, pid))
        throw std::runtime_error(refusal(pid, facts));
}

pid_t Tracing::tracerOf(pid_t pid) { return std::atoi(statusField(pid, "TracerPid").c_str()); }

bool Tracing::isTracedBy(pid_t debugger, pid_t pid) {
    const pid_t tracer = tracerOf(pid);
    return tracer > 0 && (tracer == debugger || ProcessTree::parentOf(tracer) == debugger);
}

bool Tracing::isStopped(pid_t pid) { return statusField(pid, "State").starts_with('T'); }

pid_t Tracing::tracedBy(pid_t debugger) {
    static std::map<pid_t, pid_t> traced; // by tracer
    static Clock::time_point until;
    if (const auto begin = Clock::now(); begin >= until) {
        traced.clear();
        for (const pid_t pid : ProcessTree::everyone()) {
            if (const pid_t tracer = tracerOf(pid); tracer > 0) traced.emplace(tracer, pid);
        }
        until = Clock::now() + 2 * (Clock::now() - begin);
    }
    const auto found = traced.find(debugger);
    return found != traced.end() && tracerOf(found->second) == debugger ? found->second : -1;
}

std::vector<pid_t> Tracing::heldFrom(pid_t root, pid_t except) {
    std::vector<pid_t> ours = ProcessTree::descendants(root, except);
    std::ranges::sort(ours);
    const auto isOurs = [&ours](pid_t pid) { return std::ranges::binary_search(ours, pid); };
    std::vector<pid_t> held;
    if (ours.empty()) return held;
    std::ranges::copy_if(ProcessTree::everyone(), std::back_inserter(held),
                         [&isOurs](pid_t pid) { return !isOurs(pid) && isOurs(tracerOf(pid)); });
    return held;
}

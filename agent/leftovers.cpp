#include "agent/leftovers.h"

#include "backend/os/processtree.h"

#include <chrono>
#include <csignal>

namespace {

constexpr const char *sessionName = "VEX_JOB", *taskName = "VEX_TASK";

// Keepers that a launcher kills are lost one after the other.
constexpr auto gathering = std::chrono::milliseconds(20);
// Between two looks.
constexpr auto pauseBetween = std::chrono::milliseconds(5);
constexpr int maxLooks = 50;

Leftovers::Mark markOfProcess(pid_t id) {
    return {ProcessTree::variable(id, sessionName).value_or(""),
            ProcessTree::variable(id, taskName).value_or("")};
}

} // namespace

Leftovers::Mark Leftovers::markOf(const DebuggerStart& start) {
    Mark mark;
    for (const auto& [name, value] : start.environment) {
        if (name == sessionName) mark.first = value;
        if (name == taskName) mark.second = value;
    }
    return mark;
}

void Leftovers::kill(const Marks& marks, EventLoop::Task then) {
    for (const Mark& each : marks) {
        if (!each.first.empty()) sought.insert(each);
    }
    waiting.push_back(std::move(then));
    if (waiting.size() == 1) timer.after(gathering, [this] { look(1); });
}

// A process can start another one between the look and the blow, so look again.
void Leftovers::look(int round) {
    bool some = false;
    for (const pid_t id : ProcessTree::everyone()) {
        if (!sought.contains(markOfProcess(id)) || ProcessTree::parentOf(id) == 0) continue;
        some = true;
        ::kill(id, SIGKILL);
    }
    if (some && round < maxLooks)
        return timer.after(pauseBetween, [this, round] { look(round + 1); });
    sought.clear();
    // One of them may end this.
    for (const auto& task : std::exchange(waiting, {}))
        task();
}

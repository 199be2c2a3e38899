#include "report/tasklog.h"

#include "backend/drivers/gdbstops.h"
#include "common/wholenumber.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace {

using Task = TaskLog::Task;

// What stands between two texts; nothing when the line does not have both.
std::optional<std::string_view> between(std::string_view line, std::string_view before,
                                        std::string_view behind) {
    const std::size_t begin = line.find(before);
    if (begin == std::string_view::npos || !line.ends_with(behind)) return std::nullopt;
    line.remove_prefix(begin + before.size());
    if (line.size() < behind.size()) return std::nullopt;
    line.remove_suffix(behind.size());
    return line;
}

// "SIGSEGV, Segmentation fault"; nothing for what a task may say of itself: Fortran programs tell
// "SIGSEGV: Segmentation fault - invalid memory reference" in gdb's words.
std::optional<Task> bySignal(Task::State state, std::string_view signal) {
    const std::size_t comma = signal.find(", ");
    const std::string_view name = signal.substr(0, comma);
    if (comma == signal.npos || name.find_first_of(" :") != name.npos) return std::nullopt;
    return Task{state, std::string(name), std::string(signal.substr(comma + 2)), 0, false};
}

int octal(std::string_view digits) {
    int number = 0;
    for (const char c : digits)
        number = 8 * number + (c >= '0' && c <= '7' ? c - '0' : 0);
    return number;
}

// What gdb says of a task: that it has stopped or ended.
std::optional<Task> changeIn(std::string_view line) {
    if (line.starts_with("Program received signal ") || line.starts_with("Thread ")) {
        if (const auto signal = between(line, " received signal ", "."))
            return bySignal(Task::STOPPED, *signal);
    }
    if (line.starts_with("Program terminated with signal ")) {
        if (const auto signal = between(line, " with signal ", "."))
            return bySignal(Task::KILLED, *signal);
    }
    // It could not be executed, say, or there is no file for its standard input.
    if (line.starts_with("During startup program ")) {
        if (const auto code = between(line, " exited with code ", "."))
            return Task{Task::ENDED, {}, {}, wholeNumber<int>(*code).value_or(1), false};
        if (const auto signal = between(line, " terminated with signal ", "."))
            return bySignal(Task::KILLED, *signal);
    }
    if (!line.starts_with("[Inferior ")) return std::nullopt;
    if (line.ends_with(" exited normally]")) return Task{Task::ENDED, {}, {}, 0, false};
    if (const auto code = between(line, " exited with code ", "]"))
        return Task{Task::ENDED, {}, {}, octal(*code), false};
    return std::nullopt;
}

bool isDebuggers(std::string_view line) {
    static constexpr std::array<std::string_view, 17> beginnings = {
        "[Inferior ",
        "[Thread debugging using ",
        "[New Thread ",
        "[Thread 0x",
        "[Detaching after ",
        "[Attaching after ",
        "[Switching to ",
        "Using host libthread_db library ",
        "Starting program: ",
        "Continuing.",
        "Continuing with signal ",
        "Continuing with no signal.",
        "The program no longer exists.",
        "No answer yet from ",
        "warning: Error disabling address space randomization",
        "Downloading separate debug info",
        "Temporary breakpoint ",
    };
    const auto begins = [line](std::string_view each) { return line.starts_with(each); };
    return std::ranges::any_of(beginnings, begins) ||
           (line.starts_with("process ") && line.find(" is executing new program: ") != line.npos);
}

// How vex tells of a task that would end its job and stands there.
constexpr std::string_view keptFromEnding = "is kept from ending";

} // namespace

bool TaskLog::add(const ClientSet& from, const std::string& line) {
    ClientSet clients = from;
    // Those of forked processes that nobody has told of have higher numbers.
    if (!clients.empty() && clients.back() >= tasks())
        clients = clients.intersection(ClientSet({ClientSet::Range{0, tasks() - 1}}));
    if (clients.empty()) return false;
    if (line.find(keptFromEnding) != std::string::npos) {
        Task aborted;
        aborted.state = Task::STOPPED;
        aborted.aborts = true;
        aborted.errs = line.starts_with(GdbStops::errorLine);
        each(clients, aborted);
        return false;
    }
    if (const auto change = changeIn(line)) {
        each(clients, *change);
        return false;
    }
    if (isDebuggers(line)) return false;
    // Where they have stopped.
    ClientSet running;
    for (const int id : clients) {
        if (of(id).state != Task::STOPPED) running.insert(id);
    }
    output.add(running, line);
    return !running.empty();
}

void TaskLog::each(const ClientSet& clients, const Task& now) {
    for (const int id : clients) {
        Task& task = known[static_cast<std::size_t>(id)];
        const bool stands = now.state == Task::STOPPED;
        const bool aborts = task.aborts && stands, errs = task.errs && stands;
        task = now;
        task.aborts = aborts || now.aborts;
        task.errs = errs || now.errs;
        // gdb writes an empty line before it tells of a signal.
        if (now.state != Task::ENDED) output.dropBlank(id);
    }
    if (now.state == Task::STOPPED) fresh.insert(clients);
}

ClientSet TaskLog::takeStopped() { return std::exchange(fresh, {}); }

void TaskLog::goOn(const ClientSet& clients) { each(clients, Task{}); }

ClientSet TaskLog::in(Task::State state) const {
    ClientSet found;
    for (int id = 0; id < tasks(); ++id) {
        if (of(id).state == state) found.insert(id);
    }
    return found;
}

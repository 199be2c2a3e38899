#include "report/inquiry.h"

#include "backend/os/text.h"
#include "common/brokenconnection.h"
#include "common/catalog.h"
#include "common/groupnames.h"
#include "report/versions.h"

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <map>
#include <string_view>
#include <thread>
#include <utility>

namespace {

using namespace std::chrono_literals;

constexpr const char* runCommand = "run";
constexpr const char* goOnCommand = "continue";
// A task whose debugger does not pass the signal on by itself.
constexpr const char* interruptCommand = "signal SIGINT";
constexpr const char* withoutSignalCommand = "signal 0";
// Endless recursion has calls without end.
constexpr const char* fullStackCommand = "bt full 100";
constexpr const char* stackCommand = "bt 100";
constexpr const char* whoCommand = "vex who";
constexpr const char* waitsCommand = "vex waits";
constexpr std::string_view launcherMark = "launcher: ";

constexpr auto settling = 200ms; // for tasks that stop at about the same time
constexpr auto others = 1s;      // after the first crash, for those that crash as well
constexpr auto stopping = 10s;   // for tasks to stop when told to
constexpr auto insisting = 1s;   // before they are told again
constexpr auto answering = 120s; // for a debugger
constexpr auto inAHurry = 10s;   // for a debugger, after a signal

bool letsRun(const std::string& command) {
    return command == runCommand || command == goOnCommand || command == interruptCommand ||
           command == withoutSignalCommand;
}

int tasksOf(const ClientSet& clients) { return clients.empty() ? 0 : clients.back() + 1; }

// The set of signals in a line of /proc/PID/status (proc(5)): "SigCgt:\t0000000180004002".
std::uint64_t signalMask(const std::vector<std::string_view>& lines, std::string_view name) {
    for (std::string_view line : lines) {
        if (!line.starts_with(name)) continue;
        line.remove_prefix(std::min(line.size(), line.find_first_not_of("\t ", name.size())));
        std::uint64_t mask = 0;
        std::from_chars(line.data(), line.data() + line.size(), mask, 16);
        return mask;
    }
    return 0;
}

// The number of a signal by its name, as gdb writes it; 0: there is none.
int numberOf(const std::string& name) {
    for (int number = 1; number < NSIG; ++number) {
        const char* const known = ::sigabbrev_np(number);
        if (name == "SIG" + (known ? std::string(known) : std::to_string(number))) return number;
    }
    return 0;
}

// Batch systems send these to jobs that they suspend and resume.
bool suspends(int number) {
    return number == SIGSTOP || number == SIGTSTP || number == SIGTTIN || number == SIGTTOU;
}

std::string innermost(const std::vector<std::string_view>& stack) {
    return stack.empty() ? "" : std::string(stack.front());
}

std::vector<Row> rowsOf(const Data& data) {
    std::vector<Row> rows;
    for (const auto& [number, slot] : data.slots()) {
        for (const Line& line : slot.lines)
            rows.push_back({line.clients(), std::string(line.getContent())});
    }
    return rows;
}

} // namespace

Inquiry::Inquiry(Conversation& conversation, const Plan& what)
    : session(conversation),
      plan(what),
      group("VEX_REPORT_" + std::to_string(conversation.number())),
      found(0) {}

const Findings& Inquiry::carryOut() {
    found.ran = plan.way == RUN;
    found.timeout = plan.timeout;
    try {
        found.clients = session.members(GroupNames::all);
        found.log = TaskLog(tasksOf(found.clients));
        if (plan.way == RUN) run();
        look();
    } catch (const BrokenConnection&) {
        const ClientSet ended = found.log.in(TaskLog::Task::ENDED);
        found.cut = ended.size() < found.clients.size();
        if (found.clients.empty()) throw;
    }
    return found;
}

void Inquiry::run() {
    const auto began = Clock::now();
    if (plan.timeout > 0) stopAt = began + std::chrono::seconds(plan.timeout);
    if (session.command(GroupNames::all, runCommand)) {
        // There is nothing to run: core files, say.
        found.ran = false;
        return;
    }
    running = true;
    std::optional<Clock::time_point> judgeAt;
    ClientSet stopped;
    while (running) {
        auto until = stopAt;
        if (judgeAt && (!until || *judgeAt < *until)) until = judgeAt;
        Conversation::Heard heard = session.hear(until);
        switch (heard.kind) {
        case Conversation::Heard::TEXT:
            learn(heard.data);
            break;
        case Conversation::Heard::READY:
            running = stillRuns();
            break;
        case Conversation::Heard::SIGNAL:
            onSignal(heard.signal);
            break;
        default:
            break;
        }
        stopped.insert(found.log.takeStopped());
        if (!stopped.empty() && !judgeAt) judgeAt = Clock::now() + settling;
        if (!stopped.empty() && (!running || Clock::now() >= *judgeAt)) {
            judge(std::exchange(stopped, {}));
            judgeAt.reset();
        }
        if (running && stopAt && Clock::now() >= *stopAt) {
            found.timedOut = found.crashed.empty() && !hurried;
            stopAll();
            return;
        }
    }
}

// Those that stop meanwhile by themselves have crashed as well.
void Inquiry::stopAll() {
    const auto until = Clock::now() + stopping;
    session.interrupt();
    auto again = Clock::now() + insisting;
    while (running && Clock::now() < until) {
        const Conversation::Heard heard = session.hear(std::min(again, until));
        if (heard.kind == Conversation::Heard::TEXT) learn(heard.data);
        if (heard.kind == Conversation::Heard::SIGNAL) onSignal(heard.signal);
        if (heard.kind == Conversation::Heard::READY) running = stillRuns();
        if (heard.kind != Conversation::Heard::TIME) continue;
        // A debugger on a busy machine may have dropped it.
        running = stillRuns();
        if (running) session.interrupt();
        again = Clock::now() + insisting;
    }
    if (running) {
        busy = session.atWork();
        found.notes.push_back({busy, "could not be stopped, and was not looked at"});
    }
    ClientSet crashed;
    for (const int id : found.log.takeStopped()) {
        const TaskLog::Task& task = found.log.of(id);
        if (task.aborts || task.signal != "SIGINT") crashed.insert(id);
    }
    ClientSet passed = passOn(crashed);
    crashed.erase(passed);
    noteDetails(crashed);
    found.crashed.insert(crashed);
}

// Tasks that have stopped by a signal of their own: goes on with those that have a handler for it.
void Inquiry::judge(const ClientSet& stopped) {
    const ClientSet passed = passOn(stopped);
    ClientSet crashed = stopped;
    crashed.erase(passed);
    std::map<std::string, ClientSet> commands;
    for (const int id : passed)
        commands[suspended.contains(id)                ? withoutSignalCommand
                 : found.log.of(id).signal == "SIGINT" ? interruptCommand
                                                       : goOnCommand]
            .insert(id);
    if (!crashed.empty()) {
        noteDetails(crashed);
        found.crashed.insert(crashed);
        crashSeen();
    }
    for (const auto& [command, clients] : commands)
        letGoOn(clients, command);
    running = stillRuns();
}

// Questions in between have taken the place of what was waited for.
bool Inquiry::stillRuns() {
    session.awaitAll();
    return !session.atWork().empty();
}

void Inquiry::crashSeen() {
    const auto soon = Clock::now() + others;
    if (!stopAt || soon < *stopAt) stopAt = soon;
}

// The clients whose signals are to be passed on. A fault is so once at each place: what stood there
// is noted, for the handler may end the task.
ClientSet Inquiry::passOn(const ClientSet& stopped) {
    if (stopped.empty()) return {};
    Transcript status;
    status.add(ask(stopped, "info proc status").rows);
    ClientSet passed, faults;
    suspended = {};
    for (const int id : stopped) {
        const TaskLog::Task& task = found.log.of(id);
        if (task.aborts) continue;
        SignalFacts signal;
        signal.number = numberOf(task.signal);
        if (signal.number == 0) continue;
        const auto lines = status.of(id);
        const std::uint64_t bit = std::uint64_t{1} << (signal.number - 1);
        const bool caught = (signalMask(lines, "SigCgt:") & bit) != 0;
        const bool ignored = (signalMask(lines, "SigIgn:") & bit) != 0;
        if (!caught && suspends(signal.number)) suspended.insert(id);
        if (!caught && !ignored && !suspends(signal.number) && signal.number != SIGCONT) continue;
        if (caught && signal.isFault())
            faults.insert(id);
        else
            passed.insert(id);
    }
    if (faults.empty()) return passed;
    std::map<int, std::string> before;
    for (const int id : faults.intersection(found.passed))
        before[id] = innermost(found.fullStacks.of(id));
    noteDetails(faults);
    for (const int id : faults) {
        const auto last = before.find(id);
        if (last == before.end() || last->second != innermost(found.fullStacks.of(id)))
            passed.insert(id);
    }
    found.passed.insert(faults);
    return passed;
}

void Inquiry::noteDetails(const ClientSet& clients) {
    if (clients.empty()) return;
    for (const Row& row : ask(clients, SignalFacts::command()).rows) {
        const SignalFacts facts = SignalFacts::of(row.text);
        if (facts.number == 0) continue;
        for (const int id : row.clients)
            found.signals[id] = facts;
    }
    for (const int id : clients)
        found.fullStacks.forget(id);
    found.fullStacks.add(ask(clients, fullStackCommand).rows);
}

void Inquiry::letGoOn(const ClientSet& clients, const std::string& command) {
    if (!gather(clients)) return;
    found.log.goOn(clients);
    session.command(group, command);
}

void Inquiry::look() {
    looked = std::chrono::system_clock::now();
    ClientSet all = found.clients;
    all.erase(busy);
    if (plan.way == JOIN) {
        ClientSet foreign = all;
        all = idleOf(all);
        foreign.erase(all);
        if (!foreign.empty())
            found.notes.push_back({foreign, "not looked at: in the hands of another console"});
    }
    const Answer stat = ask(all, "vex stat");
    found.stat = stat.rows;
    // Those that have ended have no stack.
    for (const Row& row : stat.rows) {
        if (row.text.starts_with("no stack: ")) all.erase(row.clients);
    }
    if (stat.complete && !all.empty()) {
        if (!found.ran) {
            for (const Row& row : ask(all, SignalFacts::command()).rows) {
                if (SignalFacts::of(row.text).isFault()) found.crashed.insert(row.clients);
            }
            noteDetails(found.crashed);
        }
        ClientSet rest = all;
        rest.erase(found.crashed);
        found.stacks.add(ask(rest, stackCommand).rows);
    }
    found.who = ask(found.clients, whoCommand).rows;
    const Answer waits = ask(found.clients, waitsCommand);
    if (waits.complete) found.waits = waits.rows;
    found.lost = found.clients;
    found.lost.erase(session.members(GroupNames::all));
    if (!stat.complete || found.clients.empty()) return;
    const Answer told = ask({found.clients.front()}, "show version");
    if (!told.rows.empty()) found.debugger = told.rows.front().text;
    for (const Row& row : ask(found.clients, Versions::mpiCommand()).rows) {
        if (std::string mpi = Versions::mpiOf(row.text); !mpi.empty())
            found.mpi.push_back({row.clients, std::move(mpi)});
    }
}

// Those of the clients that work for no other console. A group in which one does is refused.
ClientSet Inquiry::idleOf(const ClientSet& clients) {
    const Answer answer = ask(clients, "echo");
    if (answer.error != CMD_GROUP_BUSY) return clients;
    if (clients.size() == 1) return {};
    ClientSet halves[2];
    for (const int id : clients)
        halves[halves[0].size() < clients.size() / 2 ? 0 : 1].insert(id);
    ClientSet idle = idleOf(halves[0]);
    idle.insert(idleOf(halves[1]));
    return idle;
}

// Makes the group of those clients that are still there.
bool Inquiry::gather(const ClientSet& clients) {
    if (session.assign(group, clients)) return true;
    const ClientSet living = clients.intersection(session.members(GroupNames::all));
    return !living.empty() && session.assign(group, living);
}

Inquiry::Answer Inquiry::ask(const ClientSet& clients, const std::string& command) {
    if (clients.empty()) return {};
    if (clients == found.clients) return askGroup(GroupNames::all, command);
    if (clients.size() == 1) return askGroup(std::to_string(clients.front()), command);
    if (!gather(clients)) return {};
    Answer answer = askGroup(group, command);
    if (plan.way == JOIN) session.forget(group, clients);
    return answer;
}

Inquiry::Answer Inquiry::askGroup(const std::string& name, const std::string& command) {
    Answer answer;
    const auto begun = Clock::now();
    bool given = false, told = false; // given up
    // Which no client works at, and which is told in one piece.
    const bool ofSession = command == whoCommand || command == waitsCommand;
    // A task that has just stopped may not have told so.
    while (const auto refusal = session.command(name, command)) {
        answer.error = *refusal;
        if (plan.way == JOIN || *refusal != CMD_GROUP_BUSY || Clock::now() > begun + 5s)
            return answer;
        std::this_thread::sleep_for(50ms);
    }
    const ClientSet asked = session.members(name);
    for (;;) {
        const auto patience = hurried ? std::chrono::seconds(inAHurry) : answering;
        Conversation::Heard heard = session.hear(begun + (given ? patience + stopping : patience));
        switch (heard.kind) {
        case Conversation::Heard::READY:
            // It may be that of tasks which were let run before.
            if (!asked.intersection(session.atWork()).empty() || (ofSession && !told)) break;
            answer.complete = !given;
            return answer;
        case Conversation::Heard::TEXT:
            if (heard.data.getConsoleCmd() == command) {
                told = true;
                for (Row& row : rowsOf(heard.data))
                    answer.rows.push_back(std::move(row));
            } else {
                learn(heard.data);
            }
            break;
        case Conversation::Heard::SIGNAL:
            onSignal(heard.signal);
            break;
        case Conversation::Heard::TIME:
            if (given) return answer;
            given = true;
            session.interrupt();
            found.notes.push_back(
                {session.members(name), "do not answer '" + command + "' in time"});
            break;
        }
    }
}

// Lines that belong to no answer that is waited for: what tasks say, and what the session tells.
void Inquiry::learn(const Data& data) {
    const bool tasks = letsRun(data.getConsoleCmd());
    for (const Row& row : rowsOf(data)) {
        if (tasks) {
            // gdb's empty lines are those in front of what it tells.
            if (found.log.add(row.clients, row.text) && plan.echo && !row.text.empty())
                std::fprintf(plan.echo, "%s | %s\n", Text::list(row.clients).c_str(),
                             row.text.c_str());
        } else if (row.text.starts_with(launcherMark)) {
            found.launcher.push_back(row.text.substr(launcherMark.size()));
        } else if (data.getConsoleCmd().empty()) {
            found.notes.push_back(row);
        }
    }
    if (plan.echo) std::fflush(plan.echo);
}

// What is found out from now on has to be so at once.
void Inquiry::onSignal(int number) {
    hurried = true;
    if (found.signal == 0) found.signal = number;
    stopAt = Clock::now();
}

#include "report/inquiry.h"

#include "backend/os/reportrules.h"
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
constexpr auto polling = 1s;     // for a debugger that has told of a stop and does not prompt
constexpr auto others = 1s;      // after the first crash, for those that crash as well
constexpr auto stopping = 10s;   // for tasks to stop when told to
constexpr auto insisting = 1s;   // before they are told again

// How often a task is stopped at a signal that it handles: each takes some tenths of a second.
constexpr int seenSignals = 3;
constexpr int seenFaults = 5;

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

// Batch systems send these to jobs that they suspend and resume.
bool suspends(int number) {
    return number == SIGSTOP || number == SIGTSTP || number == SIGTTIN || number == SIGTTOU;
}

} // namespace

Inquiry::Inquiry(Conversation& conversation, const Plan& what)
    : session(conversation),
      plan(what),
      questions(conversation, what.way == JOIN, *this),
      found(0) {
    for (const std::string& note : plan.notes)
        found.addNote({}, note);
    if (plan.signal != 0) onSignal(plan.signal);
    found.startCut = plan.signal != 0;
}

const Findings& Inquiry::carryOut() {
    found.ran = found.toRun = plan.way == RUN;
    found.timeout = plan.timeout;
    try {
        found.clients = session.members(GroupNames::all);
        questions.setAll(found.clients);
        found.log = TaskLog(tasksOf(found.clients));
        // What the session tells of its start stands before its first answer.
        while (session.hasMore())
            onText(session.hear(Clock::now()).data);
        if (found.clients.empty()) return found;
        // The others would wait for them.
        const bool whole = found.missing.empty() && !found.startCut;
        if (plan.way == RUN && whole) run();
        if (plan.way != RUN || whole) look();
    } catch (const BrokenConnection&) {
        const ClientSet ended = found.log.in(TaskLog::Task::ENDED).intersection(found.clients);
        found.cut = ended.size() < found.clients.size();
        if (found.clients.empty()) throw;
    }
    found.forkers = workers.parents();
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
    constexpr auto never = Clock::time_point::max();
    std::optional<Clock::time_point> judgeAt;
    auto lateAt = never;
    ClientSet stopped;
    while (running || session.hasMore() || !fresh.empty()) {
        // Those that have forked them may wait for them.
        if (!fresh.empty()) {
            letGoOn(std::exchange(fresh, {}), goOnCommand);
            running = stillRuns();
            continue;
        }
        auto until = stopAt;
        if (judgeAt && (!until || *judgeAt < *until)) until = judgeAt;
        Conversation::Heard heard = session.hear(until);
        switch (heard.kind) {
        case Conversation::Heard::TEXT:
            onText(heard.data);
            break;
        case Conversation::Heard::READY:
            running = stillRuns();
            break;
        case Conversation::Heard::SIGNAL:
            onSignal(heard.signal);
            break;
        case Conversation::Heard::FORKED:
            onForked(heard.client);
            break;
        default:
            break;
        }
        stopped.insert(found.log.takeStopped());
        if (!stopped.empty() && !judgeAt) judgeAt = Clock::now() + settling;
        if (!stopped.empty() && lateAt == never) lateAt = Clock::now() + ReportRules::patience();
        if (!stopped.empty() && (!running || Clock::now() >= *judgeAt)) {
            // Some debuggers tell of a stop long before they prompt, and some programs in their
            // words: the others do not wait for these.
            ClientSet ready = stopped;
            if (Clock::now() < lateAt) ready.erase(session.atWork());
            stopped.erase(ready);
            judgeAt.reset();
            if (stopped.empty())
                lateAt = never;
            else
                judgeAt = Clock::now() + polling;
            ready = ready.intersection(found.log.in(TaskLog::Task::STOPPED));
            if (!ready.empty()) judge(ready);
        }
        if (running && stopAt && Clock::now() >= *stopAt) {
            found.timedOut = found.crashed.empty() && !hurried;
            stopAll(stopped);
            return;
        }
    }
}

// Those that stop meanwhile by themselves have crashed as well.
void Inquiry::stopAll(const ClientSet& stopped) {
    const auto until = Clock::now() + stopping;
    session.interrupt(GroupNames::all);
    auto again = Clock::now() + insisting;
    while ((running && Clock::now() < until) || session.hasMore()) {
        const Conversation::Heard heard = session.hear(std::min(again, until));
        if (heard.kind == Conversation::Heard::TEXT) onText(heard.data);
        if (heard.kind == Conversation::Heard::SIGNAL) onSignal(heard.signal);
        if (heard.kind == Conversation::Heard::FORKED) onForked(heard.client);
        if (heard.kind == Conversation::Heard::READY) running = stillRuns();
        if (heard.kind != Conversation::Heard::TIME) continue;
        // A debugger on a busy machine may have dropped it.
        running = stillRuns();
        if (running) session.interrupt(GroupNames::all);
        again = Clock::now() + insisting;
    }
    if (running) {
        const ClientSet busy = session.atWork();
        questions.leaveOut(busy);
        found.addNote(busy, "could not be stopped, and was not looked at");
    }
    ClientSet crashed, ended = stopped;
    ended.insert(found.log.takeStopped());
    for (const int id : ended) {
        const TaskLog::Task& task = found.log.of(id);
        if (task.state != TaskLog::Task::STOPPED) continue;
        if (task.aborts || task.signal != "SIGINT") crashed.insert(id);
    }
    const ClientSet passed = passOn(crashed);
    crashed.erase(passed);
    crashed.erase(questions.leftOut());
    noteDetails(crashed);
    found.crashed.insert(crashed);
}

// Tasks that have stopped by a signal of their own: goes on with those that have a handler for it.
void Inquiry::judge(const ClientSet& stopped) {
    const ClientSet passed = passOn(stopped);
    ClientSet crashed = stopped;
    crashed.erase(passed);
    crashed.erase(questions.leftOut());
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
    passUnseen(passed);
    for (const auto& [command, clients] : commands)
        letGoOn(clients, command);
    running = stillRuns();
}

// A program that lives by a signal would stand more than it runs: after some of the kind, its
// debugger does not stop for it any more. It still does for an interrupt, which is how tasks are
// stopped.
void Inquiry::passUnseen(const ClientSet& passed) {
    std::map<std::string, ClientSet> often;
    for (const int id : passed) {
        const std::string& name = found.log.of(id).signal;
        SignalFacts signal;
        signal.number = SignalFacts::numberOf(name);
        if (suspends(signal.number) || signal.number == SIGINT) continue;
        if (++passes[{id, signal.number}] == (signal.isFault() ? seenFaults : seenSignals))
            often[name].insert(id);
    }
    for (const auto& [name, clients] : often) {
        questions.ask(clients, "handle " + name + " nostop noprint pass");
        // What is known of those before is no cause of what comes.
        const ClientSet faulty = clients.intersection(found.passed);
        if (faulty.empty()) continue;
        found.passed.erase(faulty);
        for (const int id : faulty) {
            found.fullStacks.forget(id);
            found.signals.erase(id);
        }
        found.addNote(faulty, "has gone on after " + std::to_string(seenFaults) + " times " + name +
                                  ", and was not stopped at it any more");
    }
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

// The clients whose signals are to be passed on. A fault is so once at each place and address: what
// stood there is noted, for the handler may end the task.
ClientSet Inquiry::passOn(const ClientSet& stopped) {
    if (stopped.empty()) return {};
    Transcript status;
    status.add(questions.ask(stopped, "info proc status").rows);
    ClientSet passed, faults;
    suspended = {};
    for (const int id : stopped) {
        const TaskLog::Task& task = found.log.of(id);
        if (task.aborts) continue;
        SignalFacts signal;
        signal.number = SignalFacts::numberOf(task.signal);
        if (signal.number == 0) continue;
        // By other signals, programs end the workers that they have forked.
        if (found.forked.contains(id) && !signal.isFault()) {
            passed.insert(id);
            continue;
        }
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
        before[id] = faultOf(id);
    noteDetails(faults);
    for (const int id : faults) {
        const auto last = before.find(id);
        if (last == before.end() || last->second != faultOf(id)) passed.insert(id);
    }
    found.passed.insert(faults);
    return passed;
}

std::string Inquiry::faultOf(int id) const {
    const auto facts = found.signals.find(id);
    const auto stack = found.fullStacks.of(id);
    return (facts == found.signals.end() ? "" : facts->second.address) + " " +
           std::string(stack.empty() ? "" : stack.front());
}

void Inquiry::noteDetails(const ClientSet& clients) {
    if (clients.empty()) return;
    const auto signals = questions.ask(clients, SignalFacts::command()).rows;
    found.noteCrash(clients, signals, questions.ask(clients, fullStackCommand).rows);
}

void Inquiry::letGoOn(const ClientSet& clients, const std::string& command) {
    found.log.goOn(clients);
    if (!questions.command(clients, command)) found.addNote(clients, "could not be let go on");
}

void Inquiry::look() {
    looked = std::chrono::system_clock::now();
    ClientSet all = everyone(), asked = all;
    const Questions::Answer stat = questions.ask(all, "vex stat");
    found.stat = stat.rows;
    // Those that have ended have no stack.
    for (const Row& row : stat.rows) {
        if (!row.text.starts_with("no stack: ")) continue;
        all.erase(row.clients);
        if (plan.way == CORES) found.unread.insert(row.clients);
    }
    if (!found.unread.empty())
        found.addNote(found.unread, "the debugger could not read the core file");
    if (stat.complete && !all.empty()) {
        if (!found.ran) {
            for (const Row& row : questions.ask(all, SignalFacts::command()).rows) {
                if (SignalFacts::of(row.text).isFault()) found.crashed.insert(row.clients);
            }
            noteDetails(found.crashed);
        }
        ClientSet rest = all;
        rest.erase(found.crashed);
        found.stacks.add(questions.ask(rest, stackCommand).rows);
    }
    found.who = questions.askSession(whoCommand).rows;
    const Questions::Answer waits = questions.askSession(waitsCommand);
    if (waits.complete) found.waits = waits.rows;
    found.lost = found.clients;
    found.lost.erase(session.members(GroupNames::all));
    asked.erase(questions.leftOut());
    if (!stat.complete || asked.empty()) return;
    const Questions::Answer told = questions.ask({asked.front()}, "show version");
    if (!told.rows.empty()) found.debugger = told.rows.front().text;
    for (const Row& row : questions.ask(asked, Versions::mpiCommand()).rows) {
        if (std::string mpi = Versions::mpiOf(row.text); !mpi.empty())
            found.mpi.push_back({row.clients, std::move(mpi)});
    }
}

void Inquiry::onSilent(const ClientSet& clients, const std::string& question,
                       std::chrono::seconds time) {
    found.silent.insert(clients);
    // gdb's Python is one line without end.
    const std::string asked = question.substr(0, question.find_first_of("( "));
    found.addNote(clients, "no answer to '" + asked + "' in " + std::to_string(time.count()) +
                               " seconds; not looked at any further");
}

void Inquiry::onForeign(const ClientSet& clients) {
    found.addNote(clients, "not looked at: in the hands of another console");
}

// Lines that belong to no answer that is waited for: what tasks say, and what the session tells.
void Inquiry::onText(const Data& data) {
    const bool tasks = letsRun(data.getConsoleCmd());
    for (const Row& row : Questions::rowsOf(data)) {
        if (tasks) {
            if (plan.forksRunFree) workers.heard(row.clients, row.text);
            // gdb's empty lines are those in front of what it tells.
            if (found.log.add(row.clients, row.text) && plan.echo && !row.text.empty())
                std::fprintf(plan.echo, "%s | %s\n", Text::list(row.clients).c_str(),
                             row.text.c_str());
        } else if (row.text.starts_with(ReportRules::missing)) {
            found.missing.push_back({row.clients, row.text.substr(ReportRules::missing.size())});
        } else if (row.text.starts_with(ReportRules::undebugged)) {
            found.missing.push_back({row.clients, row.text.substr(ReportRules::undebugged.size())});
            found.undebugged.insert(row.clients);
        } else if (row.text.starts_with(launcherMark)) {
            found.addLauncherLine(row.text.substr(launcherMark.size()));
        } else if (data.getConsoleCmd().empty()) {
            found.addNote(row.clients, row.text);
        }
    }
    if (plan.echo) std::fflush(plan.echo);
}

// It stands still where its debugger has attached to it.
void Inquiry::onForked(int client) {
    if (plan.way != RUN) return;
    fresh.insert(client);
    found.forked.insert(client);
    found.log.grow(client + 1);
    questions.setAll(everyone());
}

ClientSet Inquiry::everyone() const {
    ClientSet all = found.clients;
    all.insert(found.forked);
    return all;
}

// What is found out from now on has to be so at once.
void Inquiry::onSignal(int number) {
    hurried = true;
    questions.hurry();
    if (found.signal == 0) found.signal = number;
    stopAt = Clock::now();
}

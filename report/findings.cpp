#include "report/findings.h"

#include "backend/drivers/gdb.h"
#include "backend/drivers/libcsources.h"
#include "backend/folding/userstack.h"
#include "backend/os/text.h"
#include "common/wholenumber.h"
#include "report/advice.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

namespace {

constexpr std::string_view abortCall = "MPI_Abort, called by ";
constexpr const char* mpiError = "fatal error in MPI"; // meaning of a crash without a signal
constexpr std::size_t deepest = 100;                   // call of the tree
constexpr std::size_t mostPlaces = 3;                  // among the culprits

std::string numberOf(std::size_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::vector<Driver::StackLine> framesOf(const std::vector<std::string_view>& lines) {
    const Gdb gdb("gdb");
    std::vector<Driver::StackLine> calls;
    for (const std::string_view line : lines) {
        Driver::StackLine call = gdb.parseStackLine(line);
        if (call.kind != Driver::StackLine::CALL) continue;
        if (isInLibcSources(line)) {
            call.library = "/lib/libc.so.6";
            call.place = "libc.so.6";
        }
        calls.push_back(std::move(call));
    }
    return calls;
}

std::string withPlace(const Driver::StackLine& call) {
    if (call.place.empty()) return call.function;
    return call.function + (call.library.empty() ? " (" : " of ") + call.place +
           (call.library.empty() ? ")" : "");
}

// "peak (halo.cpp:168), called by simulate"; within a library, the program's own caller.
std::string placeOf(const std::vector<Driver::StackLine>& calls) {
    if (calls.empty()) return "";
    std::string text = withPlace(calls[0]);
    const bool isSource = !calls[0].place.empty() && calls[0].library.empty();
    auto caller = std::next(calls.begin());
    if (!calls[0].library.empty()) {
        const auto own = std::ranges::find_if(calls, &UserStack::isOfProgram);
        if (own > caller && own != calls.end() && own->library.empty()) caller = own;
    }
    if (caller != calls.end())
        text += ", called by " + (isSource ? caller->function : withPlace(*caller));
    return text;
}

// "search (ring.py:7)", as stat shows an interpreted function.
bool isInterpreted(std::string_view call) {
    const std::size_t colon = call.rfind(':');
    return call.ends_with(')') && call.find(" (") < colon && colon != call.npos &&
           call.substr(colon + 1).find_first_not_of("0123456789") == call.size() - colon - 2;
}

// The interpreted functions of the client's, the innermost first, that stand in the tree above the
// call; above its only stack where the tree does not have that call.
std::vector<std::string> interpretedAbove(const std::vector<Report::Call>& tree, int client,
                                          const std::string& call) {
    std::vector<std::string> path, found;
    bool several = false;
    for (const Report::Call& each : tree) {
        if (!each.clients.contains(client)) continue;
        several = several || each.depth < path.size();
        path.resize(each.depth);
        path.push_back(each.text);
        if (each.text == call) found = path;
    }
    if (found.empty() && !several) found = std::move(path);
    std::erase_if(found, [](const std::string& each) { return !isInterpreted(each); });
    std::ranges::reverse(found);
    return found;
}

// Places, as stat words them.
bool isPlace(const std::string& text) {
    const std::size_t digits = text.find_first_not_of("0123456789");
    if (digits == 0 || digits == std::string::npos) return false;
    const std::string_view rest = std::string_view(text).substr(digits);
    return rest.starts_with(" client in ") || rest.starts_with(" clients in ");
}

// Rows of vex waits about tasks of which it knows nothing.
bool isUntraced(const Row& row) {
    return row.text == "has no process" || row.text.starts_with("libvexmpi.so is ");
}

// How many deadlocks a row of vex waits tells.
std::size_t deadlocksIn(const Row& row) {
    constexpr std::string_view word = "deadlock", further = "deadlock: ", more = " more";
    const std::string_view text = row.text;
    if (!text.starts_with(word)) return 0;
    if (!text.starts_with(further) || !text.ends_with(more)) return 1;
    return wholeNumber<std::size_t>(
               text.substr(further.size(), text.size() - further.size() - more.size()))
        .value_or(1);
}

// Those with the most clients last, and of equal ones the places at which they wait for others.
void sortBySize(std::vector<Row>& rows) {
    std::ranges::stable_sort(rows, {}, [](const Row& row) {
        bool waits = false;
        if (isPlace(row.text)) {
            constexpr std::string_view mark = " in ";
            const std::string call = row.text.substr(row.text.find(mark) + mark.size());
            waits = UserStack::waits(call.substr(0, call.find_first_of(" ,")));
        }
        return std::tuple(row.clients.size(), waits, row.clients.front());
    });
}

// Whether a handler runs on top of the call at which the older stack begins.
bool handlesSignalOf(const std::vector<std::string_view>& stack,
                     const std::vector<std::string_view>& older) {
    const auto mark = std::ranges::find_if(stack, [](std::string_view line) {
        return line.starts_with('#') && line.find("<signal handler called>") != line.npos;
    });
    if (mark == stack.end()) return false;
    const auto below = framesOf({std::next(mark), stack.end()}), first = framesOf(older);
    return !below.empty() && !first.empty() && below[0].function == first[0].function &&
           below[0].place == first[0].place;
}

std::string leftOut(std::size_t count, const std::string& noun) {
    return "[" + numberOf(count, noun) + " left out]";
}

} // namespace

void Findings::noteCrash(const ClientSet& about, const std::vector<Row>& told,
                         const std::vector<Row>& stackLines) {
    Transcript fresh;
    fresh.add(stackLines);
    ClientSet replaced = about;
    for (const int id : about.intersection(passed)) {
        if (handlesSignalOf(fresh.of(id), fullStacks.of(id))) replaced.erase(ClientSet{id});
    }
    for (const int id : replaced)
        fullStacks.forget(id);
    for (const Row& row : stackLines)
        fullStacks.add(row.clients.intersection(replaced), row.text);
    for (const Row& row : told) {
        const SignalFacts facts = SignalFacts::of(row.text);
        if (facts.number == 0) continue;
        for (const int id : row.clients.intersection(replaced)) {
            SignalFacts& known = signals[id];
            // A handler raises its signal again as another process would.
            const bool again = passed.contains(id) && known.number == facts.number &&
                               !known.address.empty() && facts.address.empty();
            if (!again) known = facts;
        }
    }
}

void Findings::addLauncherLine(const std::string& line) {
    messages.add(line);
    launcher.add(line);
}

void Findings::addNote(const ClientSet& about, const std::string& text) {
    if (Row* const same = notes.find([&text](const Row& each) { return each.text == text; }))
        same->clients.insert(about);
    else
        notes.add({about, text});
}

void Findings::conclude(Report& report) const {
    if (!std::ranges::all_of(waits, isUntraced)) report.waits = waits;
    report.who = who;
    report.debugger = debugger;
    report.mpi = mpi;
    report.launcher = launcher.items([](std::size_t count) { return leftOut(count, "line"); });
    report.notes = notes.items([](std::size_t count) { return Row{{}, leftOut(count, "note")}; });
    report.output = log.lastLines();
    report.stacks = stacks.parts();
    addStat(report);
    addCrashes(report);
    addEnds(report);
    report.missing = missing;
    if (clients.empty() || (toRun && (!missing.empty() || startCut)))
        addRefusal(report);
    else
        addOutcome(report);
    if (auto hint = traceHint(report, waits, ran)) report.notes.push_back(std::move(*hint));
    if (auto hint = forksHint(report, forkers, log.in(TaskLog::Task::ENDED)))
        report.notes.push_back(std::move(*hint));
}

// With a part of its tasks, a program does something else than with all.
void Findings::addRefusal(Report& report) const {
    report.outcome = Report::LOOKED;
    report.disturbed = signal != 0 ? 128 + signal : 3;
    report.headline =
        (toRun ? "not run: " : "not looked at: ") + reasonNot(clients.size(), missing);
    report.culprits = missingRanks(missing, mostPlaces);
}

// Equal are those of the same signal whose program's own calls are the same.
void Findings::addCrashes(Report& report) const {
    using Key = std::tuple<std::string, std::string, std::string, std::vector<std::string>>;
    std::map<Key, std::size_t> known;
    std::vector<Transcript> texts;
    ClientSet all = crashed;
    for (const int id : passed) {
        const TaskLog::Task& task = log.of(id);
        if (task.state == TaskLog::Task::KILLED ||
            (task.state == TaskLog::Task::ENDED && task.status != 0))
            all.insert(id);
    }
    for (const int id : all) {
        const auto lines = fullStacks.of(id);
        const std::vector<Driver::StackLine> calls = UserStack(framesOf(lines)).calls();
        Report::Crash crash;
        const auto facts = signals.find(id);
        const TaskLog::Task task = id < log.tasks() ? log.of(id) : TaskLog::Task{};
        if (task.errs) crash.meaning = mpiError;
        if (!task.aborts) {
            // What a handler does in the end is not what went wrong.
            const bool handled = passed.contains(id) && crashed.contains(id);
            const bool told = task.state != TaskLog::Task::ENDED && !task.signal.empty() &&
                              (!handled || facts == signals.end());
            const int number = facts == signals.end() ? 0 : facts->second.number;
            const char* const name = number > 0 ? ::sigabbrev_np(number) : nullptr;
            crash.signal = told ? task.signal : name ? "SIG" + std::string(name) : "a signal";
            crash.meaning = SignalFacts::meaningOf(crash.signal, told ? task.meaning : "");
        }
        for (const Driver::StackLine& call : calls)
            crash.calls.push_back(call.function);
        crash.place = placeOf(calls);
        // Of an interpreter, a debugger's stack has only the calls of its own.
        const bool isOwn = !calls.empty() && calls[0].library.empty() && !calls[0].place.empty();
        if (!calls.empty() && !isOwn) {
            auto functions = interpretedAbove(report.tree, id, calls[0].function);
            if (calls[0].place.empty() && !functions.empty())
                functions.insert(functions.begin(), calls[0].function);
            if (!functions.empty()) crash.place = functions[0];
            if (functions.size() > 1) crash.place += ", called by " + functions[1];
        }
        if (facts != signals.end()) crash.address = facts->second.address;
        const auto [at, fresh] = known.try_emplace(
            Key{crash.signal, crash.meaning, crash.place, crash.calls}, report.crashes.size());
        if (fresh) {
            report.crashes.push_back(crash);
            texts.emplace_back();
        }
        Report::Crash& group = report.crashes[at->second];
        if (group.address != crash.address) group.address.clear();
        group.clients.insert(id);
        for (const std::string_view line : lines)
            texts[at->second].add({id}, std::string(line));
    }
    for (std::size_t i = 0; i < texts.size(); ++i)
        report.crashes[i].stacks = texts[i].parts();
}

void Findings::addEnds(Report& report) const {
    std::map<std::pair<std::string, int>, ClientSet> ends;
    for (int id = 0; id < log.tasks(); ++id) {
        const TaskLog::Task& task = log.of(id);
        // By this, programs end the workers that they have forked.
        if (forked.contains(id) && task.signal == "SIGTERM") continue;
        if (task.state == TaskLog::Task::KILLED)
            ends[{task.signal + ", " + SignalFacts::meaningOf(task.signal, task.meaning), 0}]
                .insert(id);
        else if (task.state == TaskLog::Task::ENDED && task.status != 0)
            ends[{"", task.status}].insert(id);
    }
    for (const auto& [how, theirs] : ends)
        report.ended.push_back({theirs, how.second, how.first});
}

void Findings::addStat(Report& report) const {
    for (const Row& row : stat) {
        const std::size_t blanks = std::min(row.text.find_first_not_of(' '), row.text.size());
        if (isPlace(row.text))
            report.places.push_back(row);
        else if (row.text.starts_with("helper threads: "))
            report.helpers.push_back(row);
        else if (row.text.starts_with("no stack: "))
            continue; // ended
        else if (blanks / 2 <= deepest)
            report.tree.push_back(
                {blanks / 2, blanks / 2 < deepest ? row.text.substr(blanks) : "…", row.clients});
    }
    sortBySize(report.places);
}

// Whom the messages of MPI's own name as those that have ended the job.
MpiMessages Findings::aborters() const {
    MpiMessages found = messages;
    for (const Transcript::Part& part : log.lastLines()) {
        for (const std::string& line : part.lines)
            found.add(line);
    }
    found.keepOnly(clients);
    return found;
}

void Findings::addOutcome(Report& report) const {
    ClientSet crashes, aborts, mpiErrors, ends;
    std::vector<Row> culprits, workers;
    for (const Report::Crash& crash : report.crashes) {
        std::string text =
            crash.signal.empty() && !crash.meaning.empty() ? "aborted" : "called MPI_Abort";
        if (!crash.signal.empty()) {
            text = crash.signal + (crash.meaning.empty() ? "" : ", " + crash.meaning);
            if (!crash.address.empty() && crash.address != SignalFacts::unknown)
                text += ", at address " + crash.address;
            if (!crash.place.empty()) text += ",";
        }
        std::string place = crash.place;
        if (crash.signal.empty() && place.starts_with(abortCall)) place.erase(0, abortCall.size());
        if (!place.empty()) text += " in " + place;
        (crash.signal.empty() ? aborts : crashes).insert(crash.clients);
        if (crash.signal.empty() && !crash.meaning.empty()) mpiErrors.insert(crash.clients);
        culprits.push_back({crash.clients, text});
    }
    sortBySize(culprits);
    if (aborts.empty()) {
        const MpiMessages said = aborters();
        mpiErrors = said.errors;
        for (const auto& [theirs, what] :
             {std::pair(said.errors, "made a fatal error in MPI, which ended the job"),
              std::pair(said.aborts, "called MPI_Abort, which ended the job")}) {
            aborts.insert(theirs);
            if (!theirs.empty()) culprits.push_back({theirs, what});
        }
    }
    for (const Report::Ended& end : report.ended) {
        ClientSet theirs = end.clients;
        theirs.erase(crashes);
        theirs.erase(aborts);
        // Their launcher has killed the others.
        if (theirs.empty() || (!aborts.empty() && !end.signal.empty())) continue;
        const std::string how = end.signal.empty()
                                    ? "ended with status " + std::to_string(end.status)
                                    : "ended by " + end.signal;
        // The program that has forked these knows of them, unless it waits for them still.
        const ClientSet ours = theirs.intersection(forked);
        theirs.erase(ours);
        if (!ours.empty()) workers.push_back({ours, how});
        if (!theirs.empty()) culprits.push_back({theirs, how});
        ends.insert(theirs);
    }
    ClientSet gone = lost;
    for (const ClientSet& known : {crashes, aborts, ends, log.in(TaskLog::Task::ENDED)})
        gone.erase(known);
    if (!gone.empty())
        report.notes.push_back({gone, "their debuggers have ended, or the connections to them"});
    // Without their debuggers, tasks do not live on.
    if (ran && culprits.empty() && !gone.empty()) {
        ends.insert(gone);
        culprits.push_back({gone, "was lost with its debugger"});
    }
    const std::string tasks = numberOf(clients.size(), "task");
    const std::string all =
        tasks + (forked.empty() ? ""
                 : forked.size() == 1
                     ? " and 1 forked process"
                     : " and " + std::to_string(forked.size()) + " forked processes");
    const bool failed = !culprits.empty() || cut;
    if (ran && failed) {
        report.outcome = Report::FAILED;
        report.headline =
            !crashes.empty() ? std::to_string(crashes.size()) + " of " + all + " crashed"
            : !aborts.empty()
                ? std::to_string(aborts.size()) + " of " + all +
                      (mpiErrors.empty()                   ? " called MPI_Abort"
                       : mpiErrors.size() == aborts.size() ? " made a fatal error in MPI"
                                                           : " ended the job")
            : !ends.empty() ? std::to_string(ends.size()) + " of " + all + " failed"
                            : "the job was ended before its " + all + " had ended";
        report.culprits = std::move(culprits);
        return;
    }
    if (ran && !timedOut &&
        log.in(TaskLog::Task::ENDED).intersection(clients).size() == clients.size()) {
        report.outcome = Report::ENDED;
        report.headline = "all went well: " + tasks + " ended with status 0";
        return;
    }
    report.outcome = timedOut ? Report::TIMED_OUT : Report::LOOKED;
    const bool errors = !silent.empty() || !unread.empty() || !gone.empty() || !undebugged.empty();
    report.disturbed = signal != 0 ? 128 + signal : cut ? 1 : errors ? 3 : 0;
    if (cut)
        report.notes.push_back({clients, "the session ended before all was found out about them"});
    report.headline =
        timedOut ? "timed out after " + numberOf(static_cast<std::size_t>(timeout), "second") +
                       ": what its " + all + " did then"
                 : "what " + all + (clients.size() + forked.size() == 1 ? " does" : " do");
    if (cut) report.headline = "the session ended before all was found out about its " + all;
    if (!ran && !culprits.empty())
        report.headline = std::to_string(crashes.size()) + " of " + all + " crashed";
    // Nothing else tells of those for whom the others may wait.
    culprits.insert(culprits.begin(), workers.begin(), workers.end());
    ClientSet done;
    for (const int id : log.in(TaskLog::Task::ENDED).intersection(clients)) {
        if (log.of(id).status == 0) done.insert(id);
    }
    if (!done.empty() && done.size() < clients.size()) {
        const bool one = clients.size() - done.size() == 1;
        culprits.push_back({done, std::string(done.size() == 1 ? "has" : "have") +
                                      " ended with status 0, the other" +
                                      (one ? " has not" : "s have not")});
    }
    for (Row& row : missingRanks(missing, mostPlaces))
        culprits.push_back(std::move(row));
    for (const std::vector<Row>* rows : {&report.waits, &report.places}) {
        std::size_t named = 0, deadlocks = 0;
        ClientSet locked;
        for (const Row& row : *rows) {
            if (isUntraced(row)) continue;
            if (++named <= mostPlaces) {
                culprits.push_back(row);
            } else if (const std::size_t more = deadlocksIn(row); more > 0) {
                deadlocks += more;
                locked.insert(row.clients);
            }
        }
        if (deadlocks > 0)
            culprits.push_back({locked, "deadlock: " + std::to_string(deadlocks) + " more"});
    }
    report.culprits = std::move(culprits);
}

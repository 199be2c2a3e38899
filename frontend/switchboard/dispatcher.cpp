#include "frontend/switchboard/dispatcher.h"

#include "backend/os/text.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace {

// Bytes that are kept of one client's output for the program behind the bar.
constexpr std::size_t maxCaptured = 64 * 1024 * 1024;
// Lines of a script that wait until the client's debugger has answered the line before them.
constexpr std::size_t maxScript = 10000;

constexpr const char* scriptCommand = "vex_cmd";

} // namespace

Dispatcher::Dispatcher(int count, const Driver& kind, Outlet& out, Listener& told)
    : driver(kind),
      outlet(out),
      listener(told),
      workers(static_cast<std::size_t>(count)),
      requests(out) {}

void Dispatcher::addClient(int id) {
    workers.resize(std::max(workers.size(), static_cast<std::size_t>(id) + 1));
}

void Dispatcher::consoleLeft(int console) {
    requests.consoleLeft(console);
    for (std::size_t i = 0; i < workers.size(); ++i) {
        if (workers[i].console != console) continue;
        workers[i].console = 0;
        if (!workers[i].programRuns) continue;
        stopUserProgram(static_cast<int>(i));
        conclude(static_cast<int>(i));
    }
}

// --- what clients are to do

std::optional<std::string> Dispatcher::start(Request wanted, Clock::time_point now) {
    if (auto problem = wanted.prepare(driver, outlet)) return problem;
    wanted.overdue = now + Wait::answer;
    Request& request = requests.add(std::move(wanted));
    for (int id : request.members)
        assign(id, request);
    requests.flushIdle();
    for (int id : request.members) {
        if (request.kind == Command::SCRIPTCLIENT) {
            at(id).programRuns = true;
            outlet.startUserProgram(id, request.line, "");
        } else {
            type(id, request.line);
        }
    }
    return std::nullopt;
}

void Dispatcher::filterReport(Request wanted, Clock::time_point now) {
    const int id = wanted.members.front();
    wanted.overdue = now + Wait::answer;
    Request& request = requests.add(std::move(wanted));
    assign(id, request);
    requests.flushIdle();
    at(id).filtered = true;
    report(request, id);
}

void Dispatcher::assign(int id, Request& request) {
    Worker& worker = at(id);
    assert(!worker.request);
    // What the client said before is no part of the answer.
    takePartial(id);
    worker.cutter.breakLine();
    worker.request = &request;
    request.await(id);
    worker.console = request.console;
    worker.filtered = false;
    worker.captured.clear();
}

void Dispatcher::type(int id, const std::string& line) {
    at(id).exchange.begin();
    outlet.toClient(id, line);
}

// Carries out the client's part of its request until it must wait for its debugger.
void Dispatcher::advance(int id, Clock::time_point now) {
    Worker& worker = at(id);
    Request& request = *worker.request;
    while (!worker.exchange.open() && !worker.script.empty()) {
        std::string line = std::move(worker.script.front());
        worker.script.pop_front();
        const std::string words = line.substr(std::min(line.size(), line.find_first_not_of(" \t")));
        if (request.kind == Command::SCRIPTCLIENT && Text::firstWord(words) == scriptCommand &&
            !Text::afterWord(words).empty())
            type(id, Text::afterWord(words));
        else
            deliver(id, std::move(line), now);
    }
    conclude(id);
}

// The client has done its part of the request, unless something works for it still.
void Dispatcher::conclude(int id) {
    Worker& worker = at(id);
    Request& request = *worker.request;
    requests.flushLarge(request);
    if (worker.exchange.open() || worker.programRuns) return;
    if (captures(worker) && !worker.filtered) {
        worker.filtered = true;
        const std::string text = std::exchange(worker.captured, {});
        if (request.stat) {
            request.stat->add(id, text, driver);
            if (request.waiting.size() == 1) report(request, id);
        } else if (request.console != 0) {
            worker.programRuns = true;
            outlet.startUserProgram(id, request.filter, text);
        }
        if (worker.programRuns) return;
    }
    completed(id);
}

// Hands the report of stat over when all clients have answered: to its filter, if there is one,
// which then runs for the last client. Lines that the filter leaves as they were keep their
// clients.
void Dispatcher::report(Request& request, std::optional<int> last) {
    request.reported = true;
    if (!request.filter.empty() && last && request.console != 0) {
        at(*last).programRuns = true;
        outlet.startUserProgram(*last, request.filter, request.stat->text());
        return;
    }
    int lineNo = 0;
    for (const auto& group : request.stat->rows()) {
        for (const auto& row : group)
            request.gathered.addRow(row.clients, lineNo, row.text);
        ++lineNo;
    }
}

void Dispatcher::completed(int id) {
    Worker& worker = at(id);
    Request& request = *std::exchange(worker.request, nullptr);
    worker.idleLineCount = request.answeredBy(id);
    const bool over = request.waiting.empty();
    if (over && request.stat && !request.reported) report(request, std::nullopt);
    if (over) requests.flush(request);
    listener.answered(id, request);
    if (over) requests.forget(request);
}

void Dispatcher::interrupt(const ClientSet& ids, Clock::time_point now) {
    for (int id : ids) {
        Worker& worker = at(id);
        if (!worker.request || worker.exchange.settling()) continue;
        if (worker.exchange.interrupt(now)) outlet.interrupt(id);
        if (!worker.programRuns) continue;
        stopUserProgram(id);
        conclude(id);
    }
}

bool Dispatcher::reply(const ClientSet& ids, const std::string& text, Clock::time_point now) {
    bool any = false;
    for (int id : ids) {
        Worker& worker = at(id);
        if (!worker.exchange.open() || !driver.asks(worker.cutter.tail())) continue;
        any = true;
        takePartial(id);
        worker.cutter.breakLine();
        worker.request->asking.erase(id);
        worker.request->overdue = now + Wait::answer;
        requests.arm(*worker.request);
        outlet.toClient(id, text);
    }
    return any;
}

void Dispatcher::adopt(int id, int console) {
    Request& request = *at(id).request;
    request.console = console;
    for (int each : request.waiting)
        at(each).console = console;
}

// --- what clients say

Request& Dispatcher::requestFor(const Worker& worker) {
    return worker.request ? *worker.request : requests.idleOf(worker.console);
}

void Dispatcher::output(int id, std::string_view text, Clock::time_point now) {
    Worker& worker = at(id);
    if (!worker.request && requests.noConsoles()) return;
    for (std::string& line : worker.cutter.feed(text, now))
        addLine(id, std::move(line), now);
    Request& request = requestFor(worker);
    if (worker.cutter.since()) requests.awaitWindow(request, *worker.cutter.since());
    requests.flushLarge(request);
}

void Dispatcher::addLine(int id, std::string text, Clock::time_point now) {
    Worker& worker = at(id);
    // A program's terminal that is not raw ends lines so.
    if (text.ends_with('\r')) text.pop_back();
    switch (worker.exchange.line(text, driver, now)) {
    case Exchange::TOO_LATE:
        return;
    case Exchange::TOO_EARLY:
        outlet.interrupt(id);
        break;
    case Exchange::ANSWER:
        break;
    }
    if (captures(worker))
        capture(worker, text);
    else
        deliver(id, std::move(text), now);
}

void Dispatcher::deliver(int id, std::string text, Clock::time_point now) {
    Worker& worker = at(id);
    Request& request = requestFor(worker);
    const int lineNo = lineCount(id)++;
    if (const auto* row = request.stat ? request.stat->find(text) : nullptr)
        request.gathered.addRow(row->clients, lineNo, row->text);
    else if (request.stat)
        request.gathered.addRow(request.members, lineNo, std::move(text));
    else
        request.gathered.add(id, lineNo, std::move(text), now);
    requests.awaitWindow(request, now);
}

void Dispatcher::capture(Worker& worker, const std::string& text) {
    if (worker.captured.size() < maxCaptured) worker.captured += text + "\n";
}

void Dispatcher::takePartial(int id) {
    Worker& worker = at(id);
    const Clock::time_point since = worker.cutter.since().value_or(Clock::time_point());
    auto text = worker.cutter.takePartial();
    if (!text || (!worker.request && requests.noConsoles())) return;
    if (captures(worker))
        capture(worker, *text);
    else
        requestFor(worker).gathered.add(id, lineCount(id)++, std::move(*text), since);
}

void Dispatcher::prompted(int id, Clock::time_point now) {
    Worker& worker = at(id);
    if (!worker.exchange.open()) return;
    // Behind its first prompt a debugger prints only what an interrupt makes it say.
    const bool settled = worker.exchange.settling();
    if (settled)
        worker.cutter.takePartial();
    else
        takePartial(id);
    worker.cutter.breakLine();
    if (worker.exchange.prompt(now) == Exchange::ANSWERED)
        advance(id, now);
    else if (!settled)
        settling.emplace_back(worker.exchange.settledAt(), id);
}

void Dispatcher::clientGone(int id) {
    Worker& worker = at(id);
    if (worker.programRuns) stopUserProgram(id);
    takePartial(id);
    if (worker.request || !requests.noConsoles()) requests.flush(requestFor(worker));
    worker.gone = true;
    worker.exchange.end();
}

void Dispatcher::remove(int id) {
    if (at(id).request) completed(id);
}

// --- the user's programs

void Dispatcher::stopUserProgram(int id) {
    Worker& worker = at(id);
    outlet.stopUserProgram(id);
    worker.programRuns = false;
    worker.script.clear();
    worker.programLines = LineCutter();
}

void Dispatcher::userProgramOutput(int id, std::string_view text, Clock::time_point now) {
    Worker& worker = at(id);
    for (std::string& line : worker.programLines.feed(text, now))
        worker.script.push_back(std::move(line));
    advance(id, now);
}

void Dispatcher::userProgramEnded(int id, const std::string& problem, Clock::time_point now) {
    Worker& worker = at(id);
    if (auto line = worker.programLines.takePartial()) worker.script.push_back(std::move(*line));
    worker.programLines = LineCutter();
    worker.programRuns = false;
    // A filter that finds nothing ends so; its other faults it reports itself.
    const bool silent = captures(worker) && problem.starts_with("ended with status");
    if (!problem.empty() && !silent)
        worker.script.push_back((captures(worker) ? worker.request->filter : "the script") + " " +
                                problem);
    advance(id, now);
}

bool Dispatcher::userProgramMayTalk(int id) const { return at(id).script.size() < maxScript; }

// --- what consoles get

void Dispatcher::flushDue(Request& request, Clock::time_point now) {
    if (!request.due || *request.due > now) return;
    std::optional<Clock::time_point> young;
    // A command's output is that of clients that still work on it; other output is any client's.
    const auto look = [&](int id) {
        Worker& worker = at(id);
        const auto since = worker.cutter.since();
        if (worker.gone || !since || &requestFor(worker) != &request) return;
        // Time cuts no line that is captured.
        const auto patience = driver.asks(worker.cutter.tail()) ? Wait::window : Wait::halfLine;
        const Clock::time_point asIf = *since + patience - Wait::window;
        if (asIf + Wait::window > now)
            young = young ? std::min(*young, asIf) : asIf;
        else if (!captures(worker))
            takePartial(id);
    };
    for (int id : request.waiting)
        look(id);
    for (std::size_t i = 0; request.waiting.empty() && i < workers.size(); ++i)
        look(static_cast<int>(i));
    requests.flushDue(request, now);
    if (young) requests.awaitWindow(request, *young);
    tellAsking(request, now);
}

void Dispatcher::say(int console, const std::string& cmd, const ClientSet& about,
                     const std::string& text, int lineNo) {
    Aggregator line;
    line.addRow(about, lineNo, text);
    if (const auto record = line.take(console, cmd)) outlet.toConsole(console, *record);
}

// Says something about clients of a running request, below what they have printed.
void Dispatcher::remark(Request& request, const ClientSet& about, const std::string& text) {
    requests.flush(request);
    say(request.console, request.text, about, text, lastLine(about));
}

void Dispatcher::announce(int console, const ClientSet& about, const std::string& text) {
    say(console, "", about, text, lastLine(about));
}

int Dispatcher::lastLine(const ClientSet& ids) {
    int lineNo = 0;
    for (int id : ids)
        lineNo = std::max(lineNo, lineCount(id));
    return lineNo;
}

// How many lines the client has said since it was given its last command.
int& Dispatcher::lineCount(int id) {
    Worker& worker = at(id);
    return worker.request ? worker.request->lineCounts.at(id) : worker.idleLineCount;
}

// Names the clients that wait for an answer, and lets the console prompt for it.
void Dispatcher::tellAsking(Request& request, Clock::time_point now) {
    if (request.console == 0) return;
    ClientSet fresh;
    for (int id : request.waiting) {
        const Worker& worker = at(id);
        if (!worker.exchange.open() || request.asking.contains(id) ||
            !driver.asks(worker.cutter.tail()))
            continue;
        // A client that has just begun to ask is waited for, so that all are named together.
        const auto since = worker.cutter.since();
        if (since && *since + Wait::window > now) return;
        fresh.insert(id);
    }
    if (fresh.empty()) return;
    request.asking.insert(fresh);
    std::string question = at(fresh.front()).cutter.tail();
    while (question.ends_with(' '))
        question.pop_back();
    remark(request, fresh, "waits for an answer to '" + question + "'; give it by: send ...");
    listener.asks(request);
}

void Dispatcher::tellOverdue(Request& request, Clock::time_point now) {
    if (!request.overdue || *request.overdue > now) return;
    request.overdue.reset();
    ClientSet silent = request.waiting;
    silent.erase(request.asking);
    if (!silent.empty() && request.console != 0)
        remark(request, silent, "No answer yet from " + Text::list(silent));
}

// --- time

std::optional<Clock::time_point> Dispatcher::deadline() const {
    std::optional<Clock::time_point> next = requests.deadline();
    if (!settling.empty() && (!next || settling.front().first < *next))
        next = settling.front().first;
    return next;
}

void Dispatcher::tick(Clock::time_point now) {
    while (!settling.empty() && settling.front().first <= now) {
        const auto [until, id] = settling.front();
        settling.pop_front();
        Worker& worker = at(id);
        if (!worker.exchange.settling() || worker.exchange.settledAt() != until) continue;
        worker.exchange.end();
        advance(id, now);
    }
    while (Request* request = requests.due(now)) {
        flushDue(*request, now);
        tellOverdue(*request, now);
        requests.arm(*request);
    }
}

#include "frontend/switchboard/dispatcher.h"

#include "backend/folding/safetext.h"
#include "backend/os/text.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace {

// Lines of a script that wait until the client's debugger has answered the line before them.
constexpr std::size_t maxScript = 10000;

constexpr const char* scriptCommand = "vex_cmd";

} // namespace

Dispatcher::Dispatcher(int count, const Driver& kind, Node& theirs, Outlet& out, Listener& told)
    : driver(kind),
      firstNode(theirs),
      outlet(out),
      listener(told),
      requests(out),
      remarks(requests, out, kind) {
    setClients(count);
}

void Dispatcher::setClients(int count) {
    members.assign(static_cast<std::size_t>(count), {});
    nodes.assign(count, firstNode);
}

void Dispatcher::addClient(int id) {
    members.resize(std::max(members.size(), static_cast<std::size_t>(id) + 1));
    nodes.set({id}, firstNode);
}

void Dispatcher::consoleLeft(int console) {
    requests.consoleLeft(console);
    for (std::size_t i = 0; i < members.size(); ++i) {
        if (members[i].console != console) continue;
        members[i].console = 0;
        const int id = static_cast<int>(i);
        if (!programRuns(id)) continue;
        stopProgram(id);
        conclude(id);
    }
}

// --- what clients are to do

std::optional<std::string> Dispatcher::start(Request wanted, Clock::time_point now) {
    if (auto problem = wanted.prepare(driver, outlet)) return problem;
    const ClientSet clients = wanted.members;
    const Request& request = place(std::move(wanted), clients, now);
    if (request.kind == Command::SCRIPTCLIENT) {
        for (const int id : clients)
            startProgram(id, request.line, "");
    } else {
        type(clients, request.line, now);
    }
    return std::nullopt;
}

// All lines that debuggers get, but for answers to their questions.
void Dispatcher::type(const ClientSet& clients, const std::string& line, Clock::time_point now) {
    stopPlaces.typed(clients, line);
    listener.typed(clients, line, now);
    nodes.type(clients, line);
}

std::string Dispatcher::lineOf(int id) const {
    const Request* const request = requestOf(id);
    if (!request) return "";
    if (request->kind != Command::SCRIPTCLIENT) return request->line;
    const auto program = programs.find(id);
    return program == programs.end() ? "" : program->second.typed;
}

void Dispatcher::filterReport(Request wanted, Clock::time_point now) {
    const int id = wanted.members.front();
    report(place(std::move(wanted), {id}, now), id);
}

// Makes the clients work on the request.
Request& Dispatcher::place(Request wanted, const ClientSet& clients, Clock::time_point now) {
    wanted.overdue = now + Wait::answer;
    Request& request = requests.add(std::move(wanted));
    // What they said before is heard first.
    nodes.begin(clients, request.work(), now);
    for (const int id : clients) {
        assert(!at(id).request);
        at(id).request = &request;
        at(id).console = request.console;
    }
    request.await(clients);
    if (request.sampling) request.sampling->begin(clients);
    requests.flushIdle();
    return request;
}

void Dispatcher::answered(int work, const ClientSet& clients, Clock::time_point now) {
    Request* const request = requests.find(work);
    if (!request) return;
    ClientSet done = request->waiting.intersection(clients);
    if (done.empty()) return;
    requests.flushReady(*request);
    if (request->kind == Command::SCRIPTCLIENT) {
        for (const int id : done) {
            programs[id].typed.clear();
            advance(id, now);
        }
        return;
    }
    if (!request->sampling) return finished(*request, std::move(done));
    request->sampling->answered(done, request->work(), *this, now);
    sampled(*request, now);
}

void Dispatcher::finished(Request& request, ClientSet done) {
    if (request.stat && done.size() == request.waiting.size()) report(request, done.back());
    // A filter still works for some.
    ClientSet busy;
    for (const int id : programs.empty() ? ClientSet() : done) {
        if (programRuns(id)) busy.insert(id);
    }
    done.erase(busy);
    if (!done.empty()) completed(request, done);
}

// Something has happened to the request's samples.
void Dispatcher::sampled(Request& request, Clock::time_point now) {
    if (request.sampling->over()) return finished(request, request.waiting);
    request.sampleDue = request.sampling->due();
    const auto answers = std::optional(now + Wait::answer);
    request.overdue = request.sampling->runs() ? std::nullopt : answers;
    requests.arm(request);
}

void Dispatcher::take(const ClientSet& clients, const Work& work, const std::string& line,
                      Clock::time_point now) {
    nodes.begin(clients, work, now);
    type(clients, line, now);
}

void Dispatcher::stop(const ClientSet& clients, Clock::time_point now) {
    nodes.interrupt(clients, now);
}

void Dispatcher::captured(int work, int id, const std::string& text) {
    Request* const request = requests.find(work);
    if (request && request->takesValue(id, text, driver)) return;
    if (request && request->sampling) return request->sampling->standing(id, text);
    // A node can send anything.
    const bool wanted = request && request->work().output == Work::WHOLE && !programRuns(id);
    if (wanted && request->console != 0 && request->waiting.contains(id))
        startProgram(id, request->filter, text);
}

void Dispatcher::stacks(int work, const StackTree& tree) {
    Request* const request = requests.find(work);
    // A node can send anything.
    if (!request || !request->stat) return;
    stopPlaces.stacks(tree);
    if (request->sampling)
        request->sampling->stacks(tree);
    else
        request->stat->add(tree);
}

// Carries out what the client's program has printed until it must wait for its debugger.
void Dispatcher::advance(int id, Clock::time_point now) {
    Program& program = programs[id];
    Request& request = *at(id).request;
    while (program.typed.empty() && !program.script.empty()) {
        std::string line = std::move(program.script.front());
        program.script.pop_front();
        const std::string words = line.substr(std::min(line.size(), line.find_first_not_of(" \t")));
        if (request.kind == Command::SCRIPTCLIENT && Text::firstWord(words) == scriptCommand &&
            !Text::afterWord(words).empty()) {
            line = Text::afterWord(words);
            const std::string refusal = driver.refusal(line);
            if (!refusal.empty()) {
                deliver(request, id, refusal, now);
            } else {
                program.typed = line;
                type({id}, line, now);
            }
        } else {
            if (!request.stat) line = SafeText::line(std::move(line));
            deliver(request, id, line, now);
        }
    }
    conclude(id);
}

// The client has done its part of the request, unless something works for it still.
void Dispatcher::conclude(int id) {
    Request& request = *at(id).request;
    requests.flushReady(request);
    const auto program = programs.find(id);
    if (program != programs.end() && program->second.works()) return;
    completed(request, {id});
}

// Hands the report of stat over when all clients have answered: to its filter, if there is one,
// which then runs for the last client. Lines that the filter leaves as they were keep their
// clients.
void Dispatcher::report(Request& request, std::optional<int> last) {
    request.reported = true;
    if (request.sampling) request.sampling->tell(*request.stat);
    listener.located(request, request.conclude());
    if (!request.filter.empty() && last && request.console != 0) {
        startProgram(*last, request.filter, request.stat->text());
        return;
    }
    for (const auto& group : request.stat->rows()) {
        for (const auto& row : group)
            request.gathered.addRow(row.clients, SafeText::of(row.text), {},
                                    &row != &group.front());
    }
    requests.arm(request);
}

void Dispatcher::completed(Request& request, const ClientSet& clients) {
    for (const int id : clients) {
        at(id).request = nullptr;
        if (!programs.empty()) programs.erase(id);
    }
    request.answeredBy(clients);
    const bool over = request.waiting.empty();
    if (over && request.stat && !request.reported) report(request, std::nullopt);
    if (over) {
        requests.flush(request);
        requests.continueIdle(request);
    } else {
        requests.flushReady(request);
    }
    listener.answered(clients, request);
    if (over) requests.forget(request);
}

void Dispatcher::interrupt(const ClientSet& ids, Clock::time_point now) {
    ClientSet working;
    for (const int id : ids) {
        if (!at(id).request) continue;
        if (!programRuns(id)) {
            working.insert(id);
            Request& request = *at(id).request;
            if (request.sampling) request.sampling->cancel(*this, now);
            if (request.sampling) sampled(request, now);
            continue;
        }
        nodes.interrupt({id}, now);
        stopProgram(id);
        conclude(id);
    }
    stop(working, now);
}

bool Dispatcher::reply(const ClientSet& ids, const std::string& text, Clock::time_point now) {
    const ClientSet taken = nodes.reply(ids, text, now);
    for (const int id : taken) {
        Request& request = *at(id).request;
        request.asking.erase(id);
        request.unnamed.erase(id);
        request.overdue = now + Wait::answer;
        requests.arm(request);
    }
    return !taken.empty();
}

void Dispatcher::adopt(int id, int console) {
    Request& request = *at(id).request;
    request.console = console;
    for (int each : request.waiting)
        at(each).console = console;
}

// --- what clients say

// Where the client's output goes; null: nobody wants it.
Request* Dispatcher::outputOf(int id, int work) {
    // Nobody knows of it yet.
    if (!has(id)) return nullptr;
    Request* const request = at(id).request;
    // What is left of a work before that is idle output, and so is all of a client without work.
    if (!request || request->number != work)
        return requests.noConsoles() ? nullptr : &requests.idleOf(at(id).console);
    // What it says while the filter has its answer is no part of that.
    return request->captures() ? nullptr : request;
}

void Dispatcher::hear(int work, const ClientSet& clients, const std::vector<std::string>& lines,
                      Clock::time_point since, Folder::Cut cut) {
    const auto gather = [&](Request& request, const auto& whose) {
        for (const std::string& line : lines)
            request.gathered.add(whose, line, since, cut);
        requests.flushReady(request);
    };
    if (clients.size() == 1) {
        if (Request* const request = outputOf(clients.front(), work))
            gather(*request, clients.front());
        return;
    }
    std::map<Request*, ClientSet> heard;
    for (const int id : clients) {
        if (Request* const request = outputOf(id, work)) heard[request].insert(id);
    }
    for (const auto& [request, whose] : heard)
        gather(*request, whose);
}

// Where several have said it, others there may do so now, and the node holds that for as long
// again.
void Dispatcher::gathered(int work, Clock::time_point now) {
    if (Request* const request = requests.find(work)) request->gathered.merged(now + Wait::window);
}

// The beginning of a line has waited long enough. What goes on with it stands directly behind it.
void Dispatcher::saidPart(int work, const ClientSet& clients, const LineCutter::Piece& part,
                          Clock::time_point now) {
    const auto cut = static_cast<Folder::Cut>((part.goesOn ? Folder::REST : Folder::WHOLE) |
                                              (part.ended ? Folder::WHOLE : Folder::HALF));
    hear(work, clients, {part.text}, part.ended ? now : now - Wait::window, cut);
}

void Dispatcher::deliver(Request& request, int id, const std::string& text, Clock::time_point now) {
    if (!request.stat) return request.gathered.add(id, text, now);
    const auto* row = request.stat->find(text);
    request.gathered.addRow(row ? row->clients : request.members,
                            row ? SafeText::of(row->text) : SafeText::line(text), now);
}

void Dispatcher::asks(int work, const ClientSet& clients, const std::string& question,
                      Clock::time_point now) {
    Request* const request = requests.find(work);
    if (!request) return;
    ClientSet fresh = request->waiting.intersection(clients);
    if (fresh.empty()) return;
    if (request->unnamed.empty() || fresh.front() < request->unnamed.front())
        request->question = question;
    request->unnamed.insert(fresh);
    request->naming = now;
    requests.arm(*request);
}

void Dispatcher::clientGone(int id) {
    if (programRuns(id)) stopProgram(id);
    programs.erase(id);
    if (at(id).request)
        requests.flush(*at(id).request);
    else if (!requests.noConsoles())
        requests.flush(requests.idleOf(at(id).console));
}

void Dispatcher::remove(int id, Clock::time_point now) {
    Request* const request = at(id).request;
    if (!request) return;
    const bool others = request->waiting.size() > 1;
    completed(*request, {id});
    if (!others || !request->sampling || request->reported) return;
    request->sampling->gone(id, request->work(), *this, now);
    sampled(*request, now);
}

// --- the user's programs

void Dispatcher::startProgram(int id, const std::string& command, const std::string& input) {
    programs[id].runs = true;
    outlet.startUserProgram(id, command, input);
}

void Dispatcher::stopProgram(int id) {
    outlet.stopUserProgram(id);
    Program& program = programs[id];
    program.runs = false;
    program.script.clear();
    program.lines = LineCutter();
}

bool Dispatcher::programRuns(int id) const {
    const auto program = programs.find(id);
    return program != programs.end() && program->second.runs;
}

void Dispatcher::userProgramOutput(int id, std::string_view text, Clock::time_point now) {
    Program& program = programs[id];
    for (LineCutter::Piece& line : program.lines.feed(text, now))
        program.script.push_back(std::move(line.text));
    advance(id, now);
}

void Dispatcher::userProgramEnded(int id, const std::string& problem, Clock::time_point now) {
    const Request& request = *at(id).request;
    Program& program = programs[id];
    if (auto line = program.lines.takeRest()) program.script.push_back(std::move(line->text));
    program.lines = LineCutter();
    program.runs = false;
    // A filter that finds nothing ends so; its other faults it reports itself.
    const bool silent = request.captures() && problem.starts_with("ended with status");
    if (!problem.empty() && !silent)
        program.script.push_back((request.captures() ? request.filter : "the script") + " " +
                                 problem);
    advance(id, now);
}

bool Dispatcher::userProgramMayTalk(int id) const {
    const auto program = programs.find(id);
    return program == programs.end() || program->second.script.size() < maxScript;
}

// --- what consoles get

void Dispatcher::announce(int console, const ClientSet& about, const std::string& text) {
    Request* where = &requests.idleOf(console);
    for (const int id : about) {
        Request* const request = has(id) ? at(id).request : nullptr;
        if (!request || request->console != console) continue;
        where = request;
        break;
    }
    remarks.announce(*where, console, about, text);
}

void Dispatcher::tellOverdue(Request& request, Clock::time_point now) {
    if (!request.overdue || *request.overdue > now) return;
    request.overdue.reset();
    ClientSet silent = request.sampling ? request.sampling->awaits() : request.waiting;
    silent.erase(request.asking);
    if (!silent.empty() && request.console != 0)
        remarks.tellSilent(request, silent, nodes.split(silent));
}

// --- time

void Dispatcher::tick(Clock::time_point now) {
    while (Request* request = requests.due(now)) {
        requests.flushDue(*request, now);
        if (request->sampling) {
            if (request->sampling->tick(*this, now)) request->overdue = now + Wait::answer;
            request->sampleDue = request->sampling->due();
        }
        if (std::exchange(request->naming, std::nullopt) && remarks.tellAsking(*request))
            listener.asks(*request);
        tellOverdue(*request, now);
        requests.arm(*request);
    }
}

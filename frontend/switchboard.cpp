#include "frontend/switchboard.h"

#include "common/brokenconnection.h"
#include "common/catalog.h"
#include "frontend/pipeline.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace {

// A gathered record of this size leaves at once, however young it is.
constexpr std::size_t largeRecord = 1024 * 1024;
// What is kept of one client's output for the program behind its bar.
constexpr std::size_t largestCapture = 64 * 1024 * 1024;
// Lines of a script that wait until its client's debugger has answered the one before.
constexpr std::size_t longScript = 10000;
// Calls of each thread that stat asks for.
constexpr int deepestStack = 500;

constexpr const char* pendingName = "PENDING";
constexpr const char* scriptCommand = "vex_cmd";

Reply answer(Reply::Value value, int number, const std::string& text = "") {
    Reply reply(value, number);
    reply.addRetInfo(text.c_str());
    return reply;
}

// The content of a text command: one line, up to its NUL.
std::string textOf(const Command& command) {
    std::string text(command.getContent() ? command.getContent() : "",
                     static_cast<std::size_t>(command.getLength()));
    return text.substr(0, text.find_first_of(std::string("\0\n\r", 3)));
}

// The text behind the first word.
std::string afterWord(const std::string& text) {
    const std::size_t blank = text.find_first_of(" \t");
    const std::size_t at = text.find_first_not_of(" \t", blank);
    return blank == std::string::npos || at == std::string::npos ? "" : text.substr(at);
}

std::string unquoted(const std::string& text) {
    const bool quoted =
        text.size() >= 2 && (text[0] == '\'' || text[0] == '"') && text.back() == text[0];
    return quoted ? text.substr(1, text.size() - 2) : text;
}

std::string firstWord(const std::string& text) { return text.substr(0, text.find_first_of(" \t")); }

std::string list(const ClientSet& ids) {
    std::string text = ids.str();
    if (!text.empty()) text.pop_back();
    return text;
}

} // namespace

Switchboard::Switchboard(int count, const Debugger& driver, Outlet& out)
    : debugger(driver), outlet(out), table(count), clients(static_cast<std::size_t>(count)) {}

void Switchboard::consoleJoined(int number) { consoles[number].idle.console = number; }

void Switchboard::consoleLeft(int number) {
    consoles.erase(number);
    table.removeConsole(number);
    // What it started goes on and keeps its clients busy, but its own programs end with it.
    for (Job& job : jobs) {
        if (job.console == number) job.console = 0;
    }
    for (int id : table.all()) {
        Client& client = at(id);
        if (client.console != number) continue;
        client.console = 0;
        if (!client.helped) continue;
        stopHelper(id);
        advance(id, Clock::time_point());
    }
}

// --- what consoles ask

void Switchboard::command(int number, const Command& command, Clock::time_point now) {
    assert(consoles.contains(number));
    if (command.getConsoleID() != number) throw BrokenConnection();
    Console& console = consoles[number];
    // Who stands in the group keeps it as it was.
    if (console.group != pendingName) table.setPending(number, pendingOf(number));
    switch (command.getType()) {
    case Command::CLIENT:
    case Command::INSTANT:
    case Command::SCRIPTCLIENT:
    case Command::STATCLIENT: {
        const auto members = table.members(command.getGroup(), number);
        if (!members) {
            outlet.toConsole(number, answer(Reply::FAILED, CMD_GROUP_NOT_FOUND));
        } else if (command.getType() == Command::CLIENT && firstWord(textOf(command)) == "vex") {
            tellWho(number, textOf(command), *members);
        } else if (std::any_of(members->begin(), members->end(),
                               [this](int id) { return at(id).state != Client::IDLE; })) {
            outlet.toConsole(number, answer(Reply::FAILED, CMD_GROUP_BUSY));
        } else {
            startJob(number, command, *members, now);
        }
        break;
    }
    case Command::PROMPT:
        answerQuestion(number, command);
        break;
    case Command::GROUP:
        groupCommand(number, command);
        break;
    case Command::ON:
        switchGroup(number, textOf(command));
        break;
    case Command::INTERRUPT:
        interruptMembers(number, command, now);
        break;
    case Command::QUIT:
        outlet.sessionOver();
        return;
    default:
        // No console sends these.
        throw BrokenConnection();
    }
    leaveVanishedGroup(number, console);
}

void Switchboard::startJob(int number, const Command& command, const ClientSet& members,
                           Clock::time_point now) {
    Job& job = jobs.emplace_back();
    job.console = number;
    job.text = textOf(command);
    job.kind = command.getType();
    job.instant = job.kind == Command::INSTANT;
    job.members = members;
    std::string line;
    if (const auto problem = prepare(job, line)) {
        say(number, job.text, members, *problem);
        jobs.pop_back();
        outlet.toConsole(number, answer(Reply::FAILED, 0));
        return;
    }
    job.waiting = members;
    job.overdue = now + Wait::answer;
    consoles[number].awaited.push_back(&job);
    for (int id : members) {
        Client& client = at(id);
        // What it said on its own account is no part of the answer.
        takePartial(id);
        client.cutter.breakLine();
        client.state = Client::RUNNING;
        client.lineNo = 0;
        client.job = &job;
        client.console = number;
        client.filtered = false;
        client.captured.clear();
    }
    for (auto& [other, console] : consoles)
        flush(console.idle);
    for (int id : members) {
        if (job.kind == Command::SCRIPTCLIENT) {
            at(id).helped = true;
            at(id).signalled = 0;
            outlet.startHelper(id, line, "");
        } else {
            type(id, line);
        }
    }
}

// Works out what the clients are to do: the line for each debugger, or the script's command line.
// Gives back what is wrong with it.
std::optional<std::string> Switchboard::prepare(Job& job, std::string& line) {
    line = job.kind == Command::CLIENT ? job.text : afterWord(job.text);
    const auto isProgram = [this](const std::string& name) { return outlet.isProgram(name); };
    switch (job.kind) {
    case Command::SCRIPTCLIENT: {
        const std::string file = firstWord(line);
        // A word that the shell reads in its own way is left to it.
        if (file.find_first_of("'\"\\$`*?[~;&|<>(){}") == std::string::npos && !isProgram(file))
            return "cannot run '" + file + "': " +
                   (isProgram("./" + file)
                        ? "a program of this directory needs its path, ./" + file
                        : "there is no such program, or it may not be executed (chmod +x)");
        line = "exec " + line;
        return std::nullopt;
    }
    case Command::STATCLIENT: {
        const std::size_t bar = line.find('|');
        const std::string options = line.substr(0, bar);
        job.withPlaces = options.find("-s") != std::string::npos;
        job.innermostOnly = options.find("-i") != std::string::npos;
        if (bar != std::string::npos) {
            const std::size_t begin = line.find_first_not_of(" \t", bar + 1);
            job.filter = begin == std::string::npos ? "" : line.substr(begin);
            const std::string program = firstWord(job.filter);
            if (!isProgram(program)) return "cannot find the program '" + program + "'";
        }
        line = debugger.backtraceCommand(deepestStack);
        return std::nullopt;
    }
    default:
        if (line.starts_with(':')) {
            line.erase(0, 1);
        } else if (!debugger.keepsBars(line)) {
            if (auto pipeline = Pipeline::parse(line, isProgram)) {
                line = std::move(pipeline->command);
                job.filter = std::move(pipeline->filter);
            }
        }
        return std::nullopt;
    }
}

void Switchboard::tellWho(int number, const std::string& text, const ClientSet& members) {
    if (afterWord(text) != "who") {
        say(number, text, members, "the one command that begins with 'vex' is: vex who");
        outlet.toConsole(number, answer(Reply::FAILED, 0));
        return;
    }
    Aggregator rows;
    int lineNo = 0;
    for (int id : members)
        rows.addRow({id}, lineNo++, outlet.describe(id));
    if (const auto record = rows.take(number, text)) outlet.toConsole(number, *record);
    sendReady(number, consoles[number]);
}

void Switchboard::type(int id, const std::string& line) {
    Client& client = at(id);
    client.typing = true;
    client.signalled = 0;
    client.signalledAt.reset();
    client.onlyQuit = false;
    client.answerLines = 0;
    outlet.toClient(id, line);
}

void Switchboard::groupCommand(int number, const Command& command) {
    GroupCommand operation;
    operation.unpack(command.getContent(), command.getLength());
    Console& console = consoles[number];
    const bool before = table.members(console.group, number).has_value();
    const Reply reply = table.apply(operation, number, console.group);
    const bool filtered =
        operation.getOpType() == GroupCommand::ASSIGN && operation.getBase() == "FILTERED";
    if (filtered) console.filteredDue = std::max(0, console.filteredDue - 1);
    const bool gone = !table.members(console.group, number);
    // The group under its own feet: lost by this command, or while a command ran.
    outlet.toConsole(number,
                     gone && (filtered || before) ? answer(Reply::SUCCESS, 0, "NULL") : reply);
    if (gone && (filtered || before)) console.group = "all";
    for (auto& [other, its] : consoles)
        leaveVanishedGroup(other, its);
}

void Switchboard::switchGroup(int number, const std::string& name) {
    if (name == pendingName) {
        const ClientSet waiting = pendingOf(number);
        if (!waiting.empty()) table.setPending(number, waiting);
    }
    const auto members = table.members(name, number);
    if (!members) {
        outlet.toConsole(number, answer(Reply::FAILED, CMD_GROUP_NOT_FOUND));
        return;
    }
    Console& console = consoles[number];
    console.group = name;
    console.interrupts.clear();
    console.interrupted = {};
    console.awaited.clear();
    for (Job& job : jobs) {
        if (!worksIn(job, *members)) continue;
        // A command that nobody owns any more goes to the first console that comes to look after
        // it.
        if (job.console == 0) {
            job.console = number;
            for (int id : job.waiting)
                at(id).console = number;
        }
        if (job.console == number) console.awaited.push_back(&job);
    }
    outlet.toConsole(
        number, answer(console.awaited.empty() ? Reply::ON_NORMAL : Reply::ON_INTERRUPT, 0, name));
}

// A command that nobody owns any more is anybody's.
ClientSet Switchboard::pendingOf(int number) const {
    ClientSet waiting;
    for (const Job& job : jobs) {
        if (job.console == number || job.console == 0) waiting.insert(job.waiting);
    }
    return waiting;
}

bool Switchboard::worksIn(const Job& job, const ClientSet& members) const {
    return job.waiting.intersects(members);
}

void Switchboard::interruptMembers(int number, const Command& command, Clock::time_point now) {
    Console& console = consoles[number];
    // It crosses a READY: whatever was said now would be taken for the answer to FILTERED.
    if (console.filteredDue > 0) return;
    const auto members = table.members(command.getGroup(), number);
    if (!members) {
        // The console goes back to group all.
        console.group = "all";
        outlet.toConsole(number, answer(Reply::SUCCESS, 0, "NULL"));
        return;
    }
    ClientSet working;
    for (int id : *members) {
        if (at(id).job && at(id).job->console == number) working.insert(id);
    }
    if (!working.empty()) {
        console.interrupted.insert(working);
        console.interrupts.push_back(now + Wait::interrupt);
    } else {
        console.awaited.clear();
        outlet.toConsole(number, answer(Reply::ON_NORMAL, 0, command.getGroup()));
    }
    for (int id : *members) {
        Client& client = at(id);
        if (client.state != Client::RUNNING) continue;
        // A second one too soon would meet the prompt, and disturb the next command.
        if (client.typing && (!client.signalledAt || now - *client.signalledAt >= Wait::again)) {
            ++client.signalled;
            client.signalledAt = now;
            outlet.interrupt(id);
        }
        if (!client.helped) continue;
        stopHelper(id);
        advance(id, now);
    }
}

void Switchboard::answerQuestion(int number, const Command& command) {
    Console& console = consoles[number];
    if (console.filteredDue > 0) return;
    const auto members = table.members(command.getGroup(), number);
    ClientSet running, asking;
    for (const Job& job : jobs) {
        if (job.console == number && members) running.insert(job.waiting.intersection(*members));
    }
    if (running.empty()) {
        outlet.toConsole(number, answer(Reply::FAILED, CMD_IN_NORMAL));
        return;
    }
    for (int id : running) {
        if (at(id).typing && debugger.asks(at(id).cutter.tail())) asking.insert(id);
    }
    const std::string text = textOf(command);
    if (asking.empty()) {
        say(number, "send " + text, running, "waits for no answer; nothing was sent");
        outlet.toConsole(number, answer(Reply::ON_INTERRUPT, 0, command.getGroup()));
        return;
    }
    for (int id : asking) {
        Client& client = at(id);
        takePartial(id);
        client.cutter.breakLine();
        client.job->asking.erase(id);
        outlet.toClient(id, unquoted(text));
    }
}

// --- what clients say

Switchboard::Job& Switchboard::jobOf(Client& client) {
    if (client.job) return *client.job;
    auto owner = consoles.find(client.console);
    if (owner == consoles.end()) owner = consoles.begin();
    return owner->second.idle;
}

void Switchboard::addLine(int id, std::string text, Clock::time_point now) {
    Client& client = at(id);
    if (client.state == Client::SETTLING) {
        // The echo of an interrupt that came too late.
        if (text == "Quit") return;
        // It came too early: the debugger dropped it and has taken up the command after it.
        client.state = Client::RUNNING;
        client.signalled = 1;
        client.signalledAt = now;
        outlet.interrupt(id);
    } else if (client.signalled > 0 && debugger.showsInterrupt(text)) {
        --client.signalled;
    }
    client.onlyQuit = text == "Quit" && client.answerLines == 0;
    ++client.answerLines;
    if (captures(client))
        capture(client, text);
    else
        deliver(id, std::move(text), now);
}

void Switchboard::deliver(int id, std::string text, Clock::time_point now) {
    Client& client = at(id);
    Job& job = jobOf(client);
    const auto row = job.fed.find(text);
    if (row != job.fed.end())
        job.gathered.addRow(row->second.clients, client.lineNo++, row->second.text);
    else if (job.kind == Command::STATCLIENT)
        job.gathered.addRow(job.members, client.lineNo++, std::move(text));
    else
        job.gathered.add(id, client.lineNo++, std::move(text));
    if (!job.due) job.due = now + Wait::window;
}

// Its output is material: for the program behind the bar, or for stat.
bool Switchboard::captures(const Client& client) {
    return client.job && (client.job->kind == Command::STATCLIENT || !client.job->filter.empty());
}

void Switchboard::capture(Client& client, const std::string& text) {
    if (client.captured.size() < largestCapture) client.captured += text + "\n";
}

void Switchboard::takePartial(int id) {
    Client& client = at(id);
    auto text = client.cutter.takePartial();
    if (!text || (!client.job && consoles.empty())) return;
    if (captures(client)) {
        capture(client, *text);
        return;
    }
    jobOf(client).gathered.add(id, client.lineNo++, std::move(*text));
}

void Switchboard::output(int id, std::string_view text, Clock::time_point now) {
    Client& client = at(id);
    if (!client.job && consoles.empty()) return;
    for (std::string& line : client.cutter.feed(text, now))
        addLine(id, std::move(line), now);
    Job& job = jobOf(client);
    if (client.cutter.since() && !job.due) job.due = *client.cutter.since() + Wait::window;
    if (job.instant || job.gathered.size() > largeRecord) flush(job);
}

void Switchboard::flush(Job& job) {
    const auto record = job.gathered.take(job.console, job.text);
    if (!record) return;
    for (const auto& [number, console] : consoles)
        outlet.toConsole(number, *record);
}

void Switchboard::flushDue(Job& job, Clock::time_point now) {
    if (!job.due || *job.due > now) return;
    std::optional<Clock::time_point> young;
    // Of a command, only who still works on it; of what idle clients say, anybody.
    for (int id : job.waiting.empty() ? table.all() : job.waiting) {
        Client& client = at(id);
        const auto since = client.cutter.since();
        if (!since || (client.job ? client.job : &jobOf(client)) != &job) continue;
        // What is captured is not cut into lines by the time.
        if (*since + Wait::window > now)
            young = young ? std::min(*young, *since) : *since;
        else if (!captures(client))
            takePartial(id);
    }
    flush(job);
    job.due.reset();
    if (young) job.due = *young + Wait::window;
    tellAsking(job, now);
}

void Switchboard::prompted(int id, Clock::time_point now) {
    Client& client = at(id);
    switch (client.state) {
    case Client::RUNNING:
        if (!client.typing) return;
        takePartial(id);
        client.cutter.breakLine();
        if (client.signalled || client.onlyQuit) {
            // The command may have ended just before the signal came: the debugger then answers
            // with one more prompt, which must not pass for the next command's. Or it begins only
            // now.
            client.state = Client::SETTLING;
            client.settled = now + Wait::settle;
            settling.emplace_back(client.settled, id);
            return;
        }
        answered(id, now);
        break;
    case Client::SETTLING:
        client.cutter.takePartial();
        client.cutter.breakLine();
        // Each interrupt that came too late has a prompt of its own.
        if (--client.signalled <= 0) answered(id, now);
        break;
    default:
        break;
    }
}

// The debugger has answered what was typed.
void Switchboard::answered(int id, Clock::time_point now) {
    Client& client = at(id);
    client.state = Client::RUNNING;
    client.typing = false;
    client.signalled = 0;
    advance(id, now);
}

// Carries out what is next for the client, until it must wait or has done its part of the command.
void Switchboard::advance(int id, Clock::time_point now) {
    Client& client = at(id);
    Job& job = *client.job;
    while (!client.typing && !client.script.empty()) {
        std::string line = std::move(client.script.front());
        client.script.pop_front();
        if (job.kind == Command::SCRIPTCLIENT && firstWord(line) == scriptCommand &&
            !afterWord(line).empty())
            type(id, afterWord(line));
        else
            deliver(id, std::move(line), now);
    }
    if (job.instant || job.gathered.size() > largeRecord) flush(job);
    if (client.typing || client.helped) return;
    if (captures(client) && !client.filtered) {
        client.filtered = true;
        const std::string text = std::exchange(client.captured, {});
        if (job.kind == Command::STATCLIENT) {
            readStacks(id, text);
            if (job.waiting.size() == 1) report(job, id);
        } else if (job.console != 0) {
            client.helped = true;
            outlet.startHelper(id, job.filter, text);
        }
        if (client.helped) return;
    }
    completed(id);
}

void Switchboard::stopHelper(int id) {
    Client& client = at(id);
    if (client.helped) outlet.stopHelper(id);
    client.helped = false;
    client.script.clear();
    client.helperLines = LineCutter();
}

void Switchboard::helperOutput(int id, std::string_view text, Clock::time_point now) {
    Client& client = at(id);
    for (std::string& line : client.helperLines.feed(text, now))
        client.script.push_back(std::move(line));
    advance(id, now);
}

void Switchboard::helperEnded(int id, const std::string& problem, Clock::time_point now) {
    Client& client = at(id);
    if (auto line = client.helperLines.takePartial()) client.script.push_back(std::move(*line));
    client.helperLines = LineCutter();
    client.helped = false;
    // A filter that finds nothing ends so; what else went wrong, it has said.
    const bool silent = captures(client) && problem.starts_with("ended with status");
    if (!problem.empty() && !silent)
        client.script.push_back((captures(client) ? client.job->filter : "the script") + " " +
                                problem);
    advance(id, now);
}

bool Switchboard::helperMayTalk(int id) const {
    return clients[static_cast<std::size_t>(id)].script.size() < longScript;
}

void Switchboard::readStacks(int id, const std::string& text) {
    Job& job = *at(id).job;
    std::vector<std::string> calls;
    std::string first;
    bool any = false;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\n', begin);
        const std::string line = text.substr(begin, end - begin);
        begin = end + 1;
        const Debugger::StackLine said = debugger.parseStackLine(line);
        switch (said.kind) {
        case Debugger::StackLine::THREAD:
            job.stacks.add(id, std::exchange(calls, {}));
            break;
        case Debugger::StackLine::CALL:
            any = true;
            calls.push_back(job.withPlaces && !said.place.empty()
                                ? said.function + " at " + said.place
                                : said.function);
            break;
        case Debugger::StackLine::OTHER:
            if (first.empty()) first = line;
            break;
        }
    }
    job.stacks.add(id, calls);
    if (!any) job.stacks.addWithout(id, "no stack: " + (first.empty() ? "no process" : first));
}

// The whole of stat, once all have answered; through its filter on behalf of the last client, when
// there is one. The lines that come back as they went keep their clients.
void Switchboard::report(Job& job, int last) {
    job.reported = true;
    std::vector<StackTree::RowGroup> groups = job.stacks.places();
    if (!job.innermostOnly) {
        for (auto& group : job.stacks.tree())
            groups.push_back(std::move(group));
    }
    const bool filters = !job.filter.empty() && last != -1 && job.console != 0;
    std::string text;
    int lineNo = 0;
    for (const auto& group : groups) {
        for (const auto& row : group) {
            if (!filters) {
                job.gathered.addRow(row.clients, lineNo, row.text);
                continue;
            }
            const std::string line = list(row.clients) + " | " + row.text;
            text += line + "\n";
            job.fed.emplace(line, row);
        }
        ++lineNo;
    }
    if (!filters) return;
    at(last).helped = true;
    outlet.startHelper(last, job.filter, text);
}

void Switchboard::completed(int id) {
    Client& client = at(id);
    Job* job = client.job;
    client.state = Client::IDLE;
    client.job = nullptr;
    job->waiting.erase(id);
    if (auto owner = consoles.find(job->console); owner != consoles.end())
        owner->second.interrupted.erase(id);
    if (job->waiting.empty()) {
        finish(*job);
    } else if (auto owner = consoles.find(job->console); owner != consoles.end()) {
        checkInterrupt(owner->first, owner->second);
    }
}

void Switchboard::finish(Job& job) {
    if (job.kind == Command::STATCLIENT && !job.reported) report(job, -1);
    flush(job);
    const int number = job.console;
    const Job* over = &job;
    std::erase_if(jobs, [over](const Job& each) { return &each == over; });
    auto owner = consoles.find(number);
    if (owner == consoles.end()) return;
    Console& console = owner->second;
    const bool awaited = console.awaited.remove(over) > 0;
    // A command left behind in another group says READY only when no other can be mistaken for it.
    const bool others = std::any_of(jobs.begin(), jobs.end(),
                                    [number](const Job& each) { return each.console == number; });
    if (console.awaited.empty() && (awaited || !(others || console.filteredDue > 0)))
        sendReady(number, console);
    else
        checkInterrupt(number, console);
}

void Switchboard::sendReady(int number, Console& console) {
    Data ready;
    ready.setType(Data::READY);
    ready.setConsoleID(number);
    console.interrupts.clear();
    console.interrupted = {};
    console.awaited.clear();
    ++console.filteredDue;
    outlet.toConsole(number, ready);
}

// All whom the interrupt was for have stopped: the console is free, whoever else still runs.
void Switchboard::checkInterrupt(int number, Console& console) {
    if (console.interrupts.empty() || !console.interrupted.empty()) return;
    for (Job& job : jobs) {
        if (job.console == number) flush(job);
    }
    sendReady(number, console);
}

void Switchboard::clientGone(int id, Clock::time_point) {
    Client& client = at(id);
    if (client.state == Client::GONE) return;
    if (client.helped) stopHelper(id);
    takePartial(id);
    Job* job = client.job;
    if (job)
        flush(*job);
    else if (!consoles.empty())
        flush(jobOf(client));
    client.state = Client::GONE;
    client.job = nullptr;
    table.removeClient(id);
    for (const auto& [number, console] : consoles)
        outlet.toConsole(number, answer(Reply::CLIENT_REMOVE, id));
    if (job) {
        job->waiting.erase(id);
        if (auto owner = consoles.find(job->console); owner != consoles.end())
            owner->second.interrupted.erase(id);
    }
    if (table.all().empty()) {
        for (const auto& [number, console] : consoles)
            outlet.toConsole(number, answer(Reply::FAILED, INFO_ALL_CLIENTS_BROKEN));
        outlet.sessionOver();
        return;
    }
    if (job && job->waiting.empty())
        finish(*job);
    else if (job && consoles.contains(job->console))
        checkInterrupt(job->console, consoles[job->console]);
    for (auto& [number, console] : consoles)
        leaveVanishedGroup(number, console);
}

// A console whose group is gone is sent to group all, but not while it waits for something.
void Switchboard::leaveVanishedGroup(int number, Console& console) {
    if (table.members(console.group, number)) return;
    if (!console.awaited.empty() || console.filteredDue > 0 || !console.interrupts.empty()) return;
    console.group = "all";
    Data quit;
    quit.setType(Data::QUIT);
    outlet.toConsole(number, quit);
}

void Switchboard::say(int number, const std::string& cmd, const ClientSet& about,
                      const std::string& text, int lineNo) {
    Aggregator line;
    line.addRow(about, lineNo, text);
    if (const auto record = line.take(number, cmd)) outlet.toConsole(number, *record);
}

// A word about some clients of a running command, behind what they have printed.
void Switchboard::remark(Job& job, const ClientSet& about, const std::string& text) {
    flush(job);
    int lineNo = 0;
    for (int id : about)
        lineNo = std::max(lineNo, at(id).lineNo);
    say(job.console, job.text, about, text, lineNo);
}

// Who waits for an answer is named, and the console gets its prompt to give it.
void Switchboard::tellAsking(Job& job, Clock::time_point now) {
    const auto owner = consoles.find(job.console);
    if (owner == consoles.end()) return;
    ClientSet fresh;
    for (int id : job.waiting) {
        const Client& client = at(id);
        if (!client.typing || job.asking.contains(id) || !debugger.asks(client.cutter.tail()))
            continue;
        // One that has just begun to ask is waited for, so that all are named together.
        const auto since = client.cutter.since();
        if (since && *since + Wait::window > now) return;
        fresh.insert(id);
    }
    if (fresh.empty()) return;
    job.asking.insert(fresh);
    std::string question = at(fresh.front()).cutter.tail();
    while (question.ends_with(' '))
        question.pop_back();
    remark(job, fresh, "waits for an answer to '" + question + "'; give it by: send ...");
    auto& [number, console] = *owner;
    const bool awaits =
        std::find(console.awaited.begin(), console.awaited.end(), &job) != console.awaited.end();
    if (awaits && console.filteredDue == 0 && console.interrupts.empty())
        outlet.toConsole(number, answer(Reply::ON_INTERRUPT, 0, console.group));
}

void Switchboard::tellOverdue(Job& job, Clock::time_point now) {
    if (!job.overdue || *job.overdue > now) return;
    job.overdue.reset();
    ClientSet silent = job.waiting;
    silent.erase(job.asking);
    if (!silent.empty() && consoles.contains(job.console))
        remark(job, silent, "No answer yet from " + list(silent));
}

// --- time

std::optional<Clock::time_point> Switchboard::deadline() const {
    std::optional<Clock::time_point> next;
    const auto consider = [&next](const std::optional<Clock::time_point>& time) {
        if (time && (!next || *time < *next)) next = time;
    };
    for (const Job& job : jobs) {
        consider(job.due);
        consider(job.overdue);
    }
    for (const auto& [number, console] : consoles) {
        consider(console.idle.due);
        if (!console.interrupts.empty()) consider(console.interrupts.front());
    }
    if (!settling.empty()) consider(settling.front().first);
    return next;
}

void Switchboard::tick(Clock::time_point now) {
    while (!settling.empty() && settling.front().first <= now) {
        const auto [until, id] = settling.front();
        settling.pop_front();
        if (at(id).state == Client::SETTLING && at(id).settled == until) answered(id, now);
    }
    for (Job& job : jobs) {
        flushDue(job, now);
        tellOverdue(job, now);
    }
    for (auto& [number, console] : consoles) {
        flushDue(console.idle, now);
        while (!console.interrupts.empty() && console.interrupts.front() <= now) {
            console.interrupts.pop_front();
            outlet.toConsole(number, answer(Reply::SUCCESS, 0));
        }
        if (console.interrupts.empty()) console.interrupted = {};
    }
}

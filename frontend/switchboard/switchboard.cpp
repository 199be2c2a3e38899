#include "frontend/switchboard/switchboard.h"

#include "backend/folding/folder.h"
#include "backend/folding/safetext.h"
#include "backend/os/text.h"
#include "common/brokenconnection.h"
#include "common/catalog.h"
#include "frontend/switchboard/owncommand.h"
#include "frontend/switchboard/pipeline.h"
#include "frontend/switchboard/taskrows.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace {

Reply answer(Reply::Value value, int number, const std::string& text = "") {
    Reply reply(value, number);
    reply.addRetInfo(text.c_str());
    return reply;
}

} // namespace

Switchboard::Switchboard(int count, const Driver& driver, Outlet& out)
    : outlet(out),
      table(count),
      local(driver, out, dispatcher),
      dispatcher(count, driver, local, out, *this),
      stoppers(dispatcher, out, out),
      kept(driver, dispatcher),
      crashed(driver, dispatcher) {}

void Switchboard::setClients(int count) {
    assert(consoles.empty());
    table = Groups(count);
    dispatcher.setClients(count);
}

void Switchboard::consoleJoined(int number) {
    consoles[number] = Console();
    dispatcher.consoleJoined(number);
}

void Switchboard::consoleLeft(int number) {
    consoles.erase(number);
    table.removeConsole(number);
    stoppers.consoleLeft(number);
    dispatcher.consoleLeft(number);
    tellDeadline();
}

// --- what consoles ask

void Switchboard::command(int number, const Command& command, Clock::time_point now) {
    assert(consoles.contains(number));
    if (command.getConsoleID() != number) throw BrokenConnection();
    carryOut(number, command, now);
    tellDeadline();
}

void Switchboard::carryOut(int number, const Command& command, Clock::time_point now) {
    Console& console = consoles[number];
    // A console that stands in the group keeps it as it was.
    if (console.group != GroupNames::pending &&
        (command.getType() == Command::GROUP || command.getGroup() == GroupNames::pending))
        table.setPending(number, pendingOf(number));
    switch (command.getType()) {
    case Command::CLIENT:
    case Command::INSTANT:
    case Command::SCRIPTCLIENT:
    case Command::STATCLIENT:
        clientCommand(number, command, now);
        break;
    case Command::PROMPT:
        stoppers.forget(number);
        answerQuestion(number, command, now);
        break;
    case Command::GROUP:
        groupCommand(number, command);
        break;
    case Command::ON:
        stoppers.forget(number);
        switchGroup(number, Text::of(command));
        break;
    case Command::INTERRUPT:
        stoppers.forget(number);
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

void Switchboard::clientCommand(int number, const Command& command, Clock::time_point now) {
    const auto members = table.members(command.getGroup(), number);
    if (!members) {
        outlet.toConsole(number, answer(Reply::FAILED, CMD_GROUP_NOT_FOUND));
        return;
    }
    Request request;
    request.console = number;
    request.text = Text::of(command);
    request.kind = command.getType();
    request.members = *members;
    switch (OwnCommand::of(command)) {
    case OwnCommand::NONE:
        break;
    case OwnCommand::STAT:
    case OwnCommand::VALUES:
        request.kind = Command::STATCLIENT;
        break;
    case OwnCommand::INTERRUPT:
        if (!stoppers.stop(request, now)) sendReady(number, consoles[number]);
        return;
    case OwnCommand::WHO:
    case OwnCommand::WAITS:
    case OwnCommand::UNKNOWN:
        return tellRows(std::move(request), OwnCommand::of(command), now);
    }
    if (std::any_of(members->begin(), members->end(),
                    [this](int id) { return dispatcher.requestOf(id); })) {
        outlet.toConsole(number, answer(Reply::FAILED, CMD_GROUP_BUSY));
        return;
    }
    const std::string text = request.text;
    if (const auto problem = dispatcher.start(std::move(request), now)) {
        dispatcher.say(number, text, *members, *problem);
        outlet.toConsole(number, answer(Reply::FAILED, 0));
        return;
    }
    count(*dispatcher.requestOf(members->front()));
}

// A console waits for the last command that it has sent.
void Switchboard::count(const Request& request) {
    Console& console = consoles[request.console];
    ++console.open;
    console.awaited = {request.number};
}

void Switchboard::tellRows(Request request, OwnCommand::Name what, Clock::time_point now) {
    const int number = request.console;
    const ClientSet& members = request.members;
    const auto pipeline = Pipeline::parse(request.text, outlet);
    if (!TaskRows::answers(what, pipeline ? pipeline->command : request.text)) {
        dispatcher.say(number, request.text, members, OwnCommand::all());
        outlet.toConsole(number, answer(Reply::FAILED, 0));
        return;
    }
    if (!pipeline) {
        Folder rows;
        for (auto& [text, clients] : TaskRows::of(what, members, outlet))
            rows.addRow(clients, std::move(text), now);
        outlet.toConsole(number, Folder::record(rows.take(), number, request.text));
        sendReady(number, consoles[number]);
        return;
    }
    const int first = members.front();
    if (dispatcher.requestOf(first)) {
        outlet.toConsole(number, answer(Reply::FAILED, CMD_GROUP_BUSY));
        return;
    }
    request.stat.emplace(StatReport::Options{});
    for (const auto& [text, clients] : TaskRows::of(what, members, outlet))
        request.stat->addRow(text, clients);
    request.filter = pipeline->filter;
    dispatcher.filterReport(std::move(request), now);
    count(*dispatcher.requestOf(first));
}

void Switchboard::groupCommand(int number, const Command& command) {
    GroupCommand operation;
    operation.unpack(command.getContent(), command.getLength());
    Console& console = consoles[number];
    const bool before = table.members(console.group, number).has_value();
    const bool filtered = operation.getOpType() == GroupCommand::ASSIGN &&
                          operation.getBase() == GroupNames::filtered;
    // After a READY the console assigns it, at other times its user.
    if (filtered && console.filteredDue == 0) {
        outlet.toConsole(number, answer(Reply::FAILED, CMD_GROUP_PREDEFINED));
        return;
    }
    const Reply reply = table.apply(operation, number, console.group);
    if (filtered) console.filteredDue = std::max(0, console.filteredDue - 1);
    const bool gone = !table.members(console.group, number);
    // The console's own group is gone, by this operation or while a command ran.
    outlet.toConsole(number,
                     gone && (filtered || before) ? answer(Reply::SUCCESS, 0, "NULL") : reply);
    if (gone && (filtered || before)) enter(number, console, GroupNames::all);
    for (auto& [other, its] : consoles)
        leaveVanishedGroup(other, its);
}

void Switchboard::enter(int number, Console& console, const std::string& group) {
    if (console.group != group) table.leftGroup(number);
    console.group = group;
}

void Switchboard::located(const Request& request, const std::vector<ClientSet>& places) {
    const auto console = consoles.find(request.console);
    if (console == consoles.end() || request.groupNames.empty()) return;
    table.setPlaces(console->first, places, console->second.group, request.groupNames);
}

void Switchboard::switchGroup(int number, const std::string& name) {
    if (name == GroupNames::pending) {
        const ClientSet waiting = pendingOf(number);
        if (!waiting.empty() || consoles[number].group != GroupNames::pending)
            table.setPending(number, waiting);
    }
    const auto members = table.members(name, number);
    if (!members) {
        outlet.toConsole(number, answer(Reply::FAILED, CMD_GROUP_NOT_FOUND));
        return;
    }
    Console& console = consoles[number];
    enter(number, console, name);
    console.interrupts.clear();
    console.interrupted = {};
    console.awaited.clear();
    for (int id : *members) {
        const Request* request = dispatcher.requestOf(id);
        if (!request) continue;
        // A command whose console has left goes to the first console that switches to its clients.
        if (request->console == 0) {
            dispatcher.adopt(id, number);
            ++console.open;
        }
        if (request->console == number) console.awaited.insert(request->number);
    }
    outlet.toConsole(
        number, answer(console.awaited.empty() ? Reply::ON_NORMAL : Reply::ON_INTERRUPT, 0, name));
}

// A command whose console has left is every console's.
ClientSet Switchboard::pendingOf(int number) const {
    ClientSet waiting = workingFor(number, table.all());
    waiting.insert(workingFor(0, table.all()));
    return waiting;
}

ClientSet Switchboard::workingFor(int number, const ClientSet& members) const {
    ClientSet working;
    for (int id : members) {
        const Request* request = dispatcher.requestOf(id);
        if (request && request->console == number) working.insert(id);
    }
    return working;
}

void Switchboard::interruptMembers(int number, const Command& command, Clock::time_point now) {
    Console& console = consoles[number];
    // The interrupt crosses a READY: the console would take its answer for that to FILTERED.
    if (console.filteredDue > 0) return;
    const auto members = table.members(command.getGroup(), number);
    if (!members) {
        // The console goes back to group all.
        enter(number, console, GroupNames::all);
        outlet.toConsole(number, answer(Reply::SUCCESS, 0, "NULL"));
        return;
    }
    const ClientSet working = workingFor(number, *members);
    if (!working.empty()) {
        console.interrupted.insert(working);
        console.interrupts.push_back(now + Wait::interrupt);
    } else {
        console.awaited.clear();
        outlet.toConsole(number, answer(Reply::ON_NORMAL, 0, command.getGroup()));
    }
    dispatcher.interrupt(*members, now);
}

void Switchboard::answerQuestion(int number, const Command& command, Clock::time_point now) {
    if (consoles[number].filteredDue > 0) return;
    const auto members = table.members(command.getGroup(), number);
    const ClientSet running = workingFor(number, members.value_or(ClientSet()));
    if (running.empty()) {
        consoles[number].awaited.clear();
        outlet.toConsole(number, answer(Reply::FAILED, CMD_IN_NORMAL));
        return;
    }
    const std::string text = Text::of(command);
    if (dispatcher.reply(running, Text::unquoted(text), now)) return;
    dispatcher.say(number, "send " + text, running, "waits for no answer; nothing was sent");
    outlet.toConsole(number, answer(Reply::ON_INTERRUPT, 0, command.getGroup()));
}

// --- what becomes of it

void Switchboard::answered(const ClientSet& clients, const Request& request) {
    for (const int each : stoppers.stopped(clients))
        sendReady(each, consoles[each]);
    auto owner = consoles.find(request.console);
    if (owner == consoles.end()) return;
    auto& [number, console] = *owner;
    console.interrupted.erase(clients);
    const bool freed = stoppers.frees(number, clients);
    if (!request.waiting.empty()) {
        // The clients that it still waits for may all be outside the console's present group.
        if (console.awaited.contains(request.number) &&
            (freed || !worksHere(request, number, console))) {
            console.awaited.erase(request.number);
            if (console.awaited.empty()) {
                dispatcher.flushAll(number);
                return sendReady(number, console);
            }
        }
        checkInterrupt(number, console);
        return;
    }
    const bool awaited = console.awaited.erase(request.number) > 0;
    --console.open;
    // A command left behind in another group ends with READY only when the console cannot take
    // that for the end of another one.
    if (console.awaited.empty() && (awaited || !(console.open > 0 || console.filteredDue > 0)))
        sendReady(number, console);
    else
        checkInterrupt(number, console);
}

bool Switchboard::worksHere(const Request& request, int number, const Console& console) const {
    const auto members = table.members(console.group, number);
    return !members || std::any_of(request.waiting.begin(), request.waiting.end(),
                                   [&members](int id) { return members->contains(id); });
}

void Switchboard::asks(const Request& request) {
    const auto owner = consoles.find(request.console);
    if (owner == consoles.end()) return;
    auto& [number, console] = *owner;
    if (console.awaited.contains(request.number) && console.filteredDue == 0 &&
        console.interrupts.empty())
        outlet.toConsole(number, answer(Reply::ON_INTERRUPT, 0, console.group));
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

// When all clients of its interrupts have stopped, the console is free, whatever else still runs.
void Switchboard::checkInterrupt(int number, Console& console) {
    if (console.interrupts.empty() || !console.interrupted.empty()) return;
    dispatcher.flushAll(number);
    sendReady(number, console);
}

void Switchboard::clientForked(int id, const std::string& process) {
    dispatcher.addClient(id);
    table.addClient(id);
    for (const auto& [number, console] : consoles)
        outlet.toConsole(number, answer(Reply::CLIENT_ADD, id, " " + process));
}

void Switchboard::tell(const ClientSet& clients, const std::string& text) {
    for (const auto& [number, console] : consoles)
        dispatcher.announce(number, clients, text);
}

void Switchboard::clientGone(int id, Clock::time_point now) {
    if (!table.all().contains(id)) return; // never announced, or gone before
    local.gone(id, now);
    dispatcher.clientGone(id);
    table.removeClient(id);
    for (const auto& [number, console] : consoles)
        outlet.toConsole(number, answer(Reply::CLIENT_REMOVE, id));
    if (table.all().empty()) {
        for (const auto& [number, console] : consoles)
            outlet.toConsole(number, answer(Reply::FAILED, INFO_ALL_CLIENTS_BROKEN));
        outlet.sessionOver();
        return;
    }
    dispatcher.remove(id, now);
    for (auto& [number, console] : consoles)
        leaveVanishedGroup(number, console);
    tellDeadline();
}

// A console whose group is gone is sent to group all, but not while it waits for something.
void Switchboard::leaveVanishedGroup(int number, Console& console) {
    if (table.members(console.group, number)) return;
    if (!console.awaited.empty() || console.filteredDue > 0 || !console.interrupts.empty()) return;
    enter(number, console, GroupNames::all);
    Data quit;
    quit.setType(Data::QUIT);
    outlet.toConsole(number, quit);
}

void Switchboard::announce(const std::string& text) {
    for (const auto& [number, console] : consoles)
        dispatcher.announce(number, table.all(), text);
}

// --- time

std::optional<Clock::time_point> Switchboard::deadline() const {
    std::optional<Clock::time_point> next = dispatcher.deadline();
    for (const auto& other :
         {local.deadline(), stoppers.deadline(), kept.deadline(), crashed.deadline()})
        if (other && (!next || *other < *next)) next = other;
    for (const auto& [number, console] : consoles) {
        if (!console.interrupts.empty() && (!next || console.interrupts.front() < *next))
            next = console.interrupts.front();
    }
    return next;
}

void Switchboard::tellDeadline() {
    const auto next = deadline();
    if (next == told) return;
    told = next;
    outlet.wakeAt(next);
}

void Switchboard::tick(Clock::time_point now) {
    told.reset();
    local.tick(now);
    dispatcher.tick(now);
    kept.tick(table.all(), now);
    crashed.tick(table.all(), now);
    for (const int number : stoppers.takeDue(now))
        sendReady(number, consoles[number]);
    for (auto& [number, console] : consoles) {
        while (!console.interrupts.empty() && console.interrupts.front() <= now) {
            console.interrupts.pop_front();
            outlet.toConsole(number, answer(Reply::SUCCESS, 0));
        }
        if (console.interrupts.empty()) console.interrupted = {};
    }
    tellDeadline();
}

#include "console/consolesession.h"

#include "common/brokenconnection.h"
#include "common/catalog.h"
#include "common/error.h"
#include "common/groupnames.h"
#include "console/readline.h"
#include "console/term.h"
#include "display/color.h"
#include "display/parser.h"

#include <cassert>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <malloc.h>
#include <optional>
#include <utility>

namespace {

constexpr int patience = 2000; // ms for an answer that is due although the user pressed Ctrl-C
// So many lines are worth giving their memory back to the system.
constexpr std::size_t manyLines = 65536;

} // namespace

ConsoleSession::ConsoleSession(const Settings& choices, FrontEndLink& connection)
    : settings(choices),
      link(connection),
      machine(*StateMachine::getInstance()),
      curGroupName(GroupNames::all) {}

// The turn and the prompt.

ConsoleSession::Lock ConsoleSession::takeTurn() {
    using Clock = std::chrono::steady_clock;
    std::optional<Clock::time_point> deadline;
    for (;;) {
        Lock turn(machine);
        if (machine.isToQuit()) return turn;
        int ms = -1;
        if (showing) {
            turn.unlock();
            awaitQuiet();
            continue;
        }
        if (!machine.isBusy()) {
            if (open.empty()) return turn;
            // Ctrl-C came before an answer: the next request must not overtake it.
            if (!deadline) deadline = Clock::now() + std::chrono::milliseconds(patience);
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now());
            if (left.count() <= 0) {
                open.clear();
                return turn;
            }
            ms = static_cast<int>(left.count());
        }
        turn.unlock();
        machine.waitForChange(ms);
    }
}

ConsoleSession::Lock ConsoleSession::takeQuiet() {
    for (;;) {
        Lock turn(machine);
        if (!showing || machine.isToQuit()) return turn;
        turn.unlock();
        awaitQuiet();
    }
}

// Sleeps until nothing is being shown, or the state has changed.
void ConsoleSession::awaitQuiet() {
    quietAwaited = true;
    if (showing) machine.waitForChange(-1);
}

void ConsoleSession::endShowing() {
    showing = false;
    // Nobody is woken who does not wait: records may come by the thousand.
    if (quietAwaited.exchange(false)) machine.announce();
}

void ConsoleSession::buildPrompt(bool interrupted) {
    prompt = "(" + curGroupName + (interrupted ? ":int" : "") + ") ";
}

bool ConsoleSession::showPrompt() {
    const Lock turn = takeTurn();
    if (machine.isToQuit()) return false;
    buildPrompt(machine.isInterrupted());
    Readline::showPrompt(prompt);
    atPrompt = true;
    return true;
}

void ConsoleSession::endPrompt() {
    const Lock turn(machine);
    atPrompt = false;
}

// The prompt under which the input thread waits is an old one. An input thread that is not at its
// prompt prints the new one itself, as soon as it may.
void ConsoleSession::promptAgain(bool interrupted) {
    if (needToPrompt && atPrompt) {
        buildPrompt(interrupted);
        std::printf("%s", prompt.c_str());
        std::fflush(stdout);
    }
    needToPrompt = false;
}

// Sending.

void ConsoleSession::openRequest(OpenRequests::Kind kind) {
    open.push(kind);
    machine.parseConsole(StateMachine::SPECIAL_CMD_EVENT, StateMachine::NORMAL) ||
        machine.parseConsole(StateMachine::INTSTATUS_CMD_EVENT, StateMachine::INTERRUPTED);
}

void ConsoleSession::send(Lock& turn, Command::Type type, const std::string& text) {
    if (type == Command::ON || type == Command::INTERRUPT) {
        stops = stops || type == Command::INTERRUPT;
        openRequest(type == Command::ON ? OpenRequests::ON : OpenRequests::INTERRUPT);
    } else if (type == Command::PROMPT) {
        leave();
    } else {
        unanswered = true;
        stops = false;
        if (machine.isToQuit()) return;
        // Running, with an empty store, before the clients can answer.
        machine.parseConsole(StateMachine::COMMON_CMD_EVENT);
        const std::lock_guard keeper(keeping);
        lastData.clearLine();
        if (keptLines > manyLines) ::malloc_trim(0);
        keptLines = 0;
        unseen = false;
    }
    const std::string group = curGroupName;
    turn.unlock();
    if (type == Command::INTERRUPT)
        link.transmit(type, group, nullptr, 0);
    else
        link.transmit(type, group, text.c_str(), -1);
}

void ConsoleSession::sendGroupCmd(Lock& turn, const GroupCommand& command) {
    openRequest(OpenRequests::GROUP);
    const std::string group = curGroupName;
    turn.unlock();
    link.transmit(command, group);
}

void ConsoleSession::createFilteredGroupCmd(Lock& turn) {
    GroupCommand filtered;
    filtered.setBase(GroupNames::filtered);
    filtered.setOpType(GroupCommand::ASSIGN);
    {
        const std::lock_guard keeper(keeping);
        for (const auto& [number, slot] : lastData.slots()) {
            for (const Line& line : slot.lines)
                filtered.addOperands(line.clients());
        }
    }
    const std::string group = curGroupName;
    turn.unlock();
    link.transmit(filtered, group);
}

void ConsoleSession::sendBatchCommand(const std::string& cmdLine) {
    isBatch = true;
    machine.parseConsole(StateMachine::COMMON_CMD_EVENT);
    link.transmit(Command::CLIENT, GroupNames::all, cmdLine.c_str(), -1);
}

// The end.

void ConsoleSession::disconnect() {
    machine.parseConsole(StateMachine::ACTIVE_QUIT_EVENT);
    link.disconnect();
}

void ConsoleSession::quit() {
    quitWanted = true;
    machine.parseConsole(StateMachine::ACTIVE_QUIT_EVENT);
    sendQuit();
}

void ConsoleSession::sendQuit() {
    quitSent = true;
    link.transmit(Command::QUIT, GroupNames::all, nullptr, 0);
}

void ConsoleSession::finish() {
    try {
        if (quitWanted && !quitSent) sendQuit();
    } catch (const BrokenConnection&) {
        // Nobody is left to be told.
    }
    if (quitSent) link.awaitEnd();
}

// Replies.

void ConsoleSession::handleReply() {
    curReply.reset();
    link.receive(curReply);
    // The turn is held until the message of a failure is out: the prompt comes after it.
    Lock turn(machine);
    actOnReply(turn);
}

void ConsoleSession::actOnReply(Lock& turn) {
    const std::string& text = curReply.getRetInfo();
    switch (curReply.getRetValue()) {
    case Reply::FAILED:
        refused();
        break;
    case Reply::SUCCESS:
        if (text == "NULL") {
            open.pop();
            send(turn, Command::ON, GroupNames::all);
        } else {
            answered();
        }
        break;
    case Reply::ON_NORMAL:
        switched(StateMachine::NORMAL);
        break;
    case Reply::ON_INTERRUPT:
        switched(StateMachine::INTERRUPTED);
        break;
    case Reply::GROUP_QUERY:
        std::printf("%s", text.c_str());
        answered();
        break;
    case Reply::CLIENT_ADD:
        std::printf("A new client %d was forked:%s\n", curReply.getErrCode(), text.c_str());
        break;
    case Reply::CLIENT_REMOVE:
        std::printf("Client %d was terminated\n", curReply.getErrCode());
        break;
    }
}

void ConsoleSession::refused() {
    unanswered = false;
    // That the last client has gone refuses nothing.
    if (curReply.getErrCode() != INFO_ALL_CLIENTS_BROKEN) ++refusals;
    // A command in flight is not in the queue of requests.
    if (!machine.setState(StateMachine::NORMAL, {StateMachine::RUNNING})) {
        open.pop();
        if (open.empty()) {
            machine.setState(StateMachine::NORMAL, {StateMachine::TEMP}) ||
                machine.setState(StateMachine::INTERRUPTED, {StateMachine::INTTEMP});
        }
    }
    machine.announce();
    if (curReply.getErrCode() != 0) {
        try {
            Error::raiseReply(curReply.getErrCode(), curReply.getRetInfo());
        } catch (const Error& error) {
            error.dump(false);
        }
    }
    if (open.empty()) promptAgain(machine.isInterrupted());
}

// A request has its answer. The console returns to its saved state with the answer to the last open
// request; the request for "FILTERED" ends a command, so that what follows it ends in NORMAL.
void ConsoleSession::answered() {
    const OpenRequests::Kind kind = open.pop();
    if (open.empty())
        machine.parseConsole(StateMachine::GROUP_REPLY_EVENT);
    else if (kind == OpenRequests::FILTERED)
        machine.setSaved(StateMachine::NORMAL);
    machine.announce();
}

void ConsoleSession::switched(StateMachine::STATE state) {
    open.pop();
    curGroupName = curReply.getRetInfo();
    promptAgain(state == StateMachine::INTERRUPTED);
    if (open.empty() || !machine.isBusy())
        machine.setState(state);
    else
        machine.setSaved(state);
    machine.announce();
}

// Output.

void ConsoleSession::handleData() {
    link.receive(curData);
    Lock turn(machine);
    switch (curData.getType()) {
    case Data::READY:
        handleReady(turn);
        break;
    case Data::QUIT:
        if (curData.getConsoleID() != link.getId()) {
            std::printf("\n");
            needToPrompt = true;
        }
        send(turn, Command::ON, GroupNames::all);
        break;
    case Data::TEXT:
        handleText(turn);
        break;
    default:
        assert(!"Unhandled data type");
    }
}

void ConsoleSession::handleReady(Lock& turn) {
    if (curData.getConsoleID() == link.getId()) {
        unanswered = false;
        if (isBatch) {
            machine.parseConsole(StateMachine::EXEC_OVER_EVENT);
        } else {
            tellUnseen();
            // One step: the input thread must not find the console idle before the group
            // "FILTERED" has been answered.
            open.dropInterrupts();
            open.push(OpenRequests::FILTERED);
            machine.finishAndRequest();
            createFilteredGroupCmd(turn);
        }
    }
    if (isBatch) quit();
}

// What comes while the user is at the prompt of the interrupt state is kept only.
void ConsoleSession::tellUnseen() {
    if (!std::exchange(stops, false)) return;
    const std::lock_guard keeper(keeping);
    if (!unseen) return;
    // Not behind what is being typed.
    std::printf("%sWhat came in between was not shown; to see it: match\n", atPrompt ? "\n" : "");
}

void ConsoleSession::handleText(Lock& turn) {
    const int mode = settings.c_dmode;
    if (curData.getConsoleID() != link.getId()) {
        if (settings.toBcast != 1) return;
        if (!curData.getConsoleCmd().empty()) std::puts(curData.getConsoleCmd().c_str());
        const int color = settings.c_bcolor;
        showing = true;
        turn.unlock();
        display(curData, mode, {color, color, color}, nullptr, interrupts);
        endShowing();
        return;
    }
    const unsigned before = interrupts;
    const bool shown = !machine.isInterrupted();
    const Colours colours = ownColours();
    const int limit = settings.maxHistoryLines;
    // Output and a command that clears it stay in their order: who holds the turn next waits here.
    const std::lock_guard keeper(keeping);
    showing = shown;
    turn.unlock();
    if (shown) {
        display(curData, mode, colours, nullptr, before);
        endShowing();
    }
    unseen = unseen || !shown || interrupts != before;
    keep(limit);
}

// Takes the record over into the kept output; for the one who holds `keeping`.
void ConsoleSession::keep(int limit) {
    if (lastData.slots().empty()) words.forget();
    std::size_t lines = 0;
    for (const auto& [number, slot] : curData.slots())
        lines += slot.lines.size();
    keptLines += lines;
    lastData.addData(std::move(curData));
    lastData.truncate(limit);
    // Records of thousands of lines outrun one tenth at a time.
    lastData.bound(limit);
    const bool offered = words.offer(lastData);
    lastData.merge();
    if (!offered) words.replay(lastData);
    if (lines > manyLines) ::malloc_trim(0);
}

ConsoleSession::Colours ConsoleSession::ownColours() const {
    return {settings.c_ecolor, settings.c_scolor, settings.c_dcolor};
}

bool ConsoleSession::match(const std::string& cascade) {
    const unsigned before = interrupts;
    const std::lock_guard keeper(keeping);
    return display(lastData, settings.c_dmode, ownColours(), cascade.c_str(), before);
}

// Shows a record until Ctrl-C is pressed once more than `before`.
bool ConsoleSession::display(Data& data, int mode, const Colours& colours, const char* pattern,
                             unsigned before) {
    Parser parser;
    if (Term::isPlain()) {
        parser.setPlain();
    } else {
        parser.setColor(colorList[colours.equal].detail, Parser::EQUAL_COLOR);
        parser.setColor(colorList[colours.similar].detail, Parser::SIMILAR_COLOR);
        parser.setColor(colorList[colours.different].detail, Parser::DIFFERENT_COLOR);
    }
    parser.stopWhen([this, before] { return interrupts != before; });
    return parser.dump(&data, static_cast<Parser::Mode>(mode), pattern);
}

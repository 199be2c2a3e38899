#include "common/catalog.h"
#include "common/error.h"
#include "common/framereader.h"
#include "common/split.h"
#include "console/console.h"
#include "console/readline.h"
#include "console/tables.h"
#include "display/parser.h"

#include <cassert>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <vector>

namespace {

constexpr std::int64_t largestRange = 1 << 20; // clients
// What all ranges of a line may come to: more ids fill no frame that a front end takes.
constexpr std::int64_t largestGroup = 3 * largestRange;
static_assert(largestGroup * 4 < FrameReader::maxFrame);

// The commands that the alternative shell front end does not have.
bool isLumaCommand(int id) {
    return id != OPTION_COMMAND && id != MATCH_COMMAND && id != INSTANT_COMMAND &&
           id != SCRIPT_COMMAND && id != STAT_COMMAND;
}

// The value of a number token; -1 when it does not fit.
int numberOf(const Token& t) {
    errno = 0;
    const long long value = std::strtoll(t.Cursor(), nullptr, 10);
    return errno == 0 && value <= INT32_MAX ? static_cast<int>(value) : -1;
}

void printTopic(const Topic& topic) {
    std::printf("%14s -- %s\n", topic.name, Catalog::get(topic.brief));
}

void printDetail(int brief, int detail) {
    // Looked up one after the other: a translated text may share its storage with the next.
    const std::string head = Catalog::get(brief);
    std::printf("%s\n\n%s", head.c_str(), Catalog::get(detail));
}

} // namespace

void Console::reportError(const char* message, const char* rest) {
    ++mistakes;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    // The catalog gives out only texts with the conversions of "%s Error near: %s<END>\n".
    std::printf(Catalog::get(INFO_ERROR_COMMAND), message, rest);
#pragma GCC diagnostic pop
    std::fflush(stdout);
}

void Console::parseCommandLine(const char* line) {
    Token t(line);
    switch (t.Next()) {
    case END:
        return;
    case NUMBER:
    case SYMBOL:
        sendClientCmd(t);
        return;
    case IDENTIFIER:
    case QUOTATION:
        break;
    default:
        ++mistakes;
        std::puts("Undefined token.");
    }
    int matches = 0;
    int id = -1;
    for (const Topic& command : cmdList) {
        if (isLuma && !isLumaCommand(command.id)) continue;
        if (t != command.name) continue;
        ++matches;
        id = command.id;
    }
    if (matches == 0)
        sendClientCmd(t);
    else if (matches > 1)
        t.Throw(CMD_AMBIGUOUS);
    else
        dispatch(id, t);
}

void Console::dispatch(int id, Token& t) {
    switch (id) {
    case HELP_COMMAND:
        isLuma ? LumahelpCommand(t) : helpCommand(t);
        break;
    case OPTION_COMMAND:
        optionCommand(t);
        break;
    case INTERRUPT_COMMAND:
        interruptCommand(t);
        break;
    case LEAVE_COMMAND:
        leaveCommand(t);
        break;
    case MATCH_COMMAND:
        matchCommand(t);
        break;
    case GROUP_COMMAND:
        groupCommand(t);
        break;
    case ON_COMMAND:
        onCommand(t);
        break;
    case SEND_COMMAND:
        sendCommand(t);
        break;
    case QUIT_COMMAND:
        quitCommand(t);
        break;
    case EXIT_COMMAND:
        if (!isLuma) exitCommand(t);
        break;
    case HISTORY_COMMAND:
        historyCommand(t);
        break;
    case INSTANT_COMMAND:
        sendInstantCmd(t);
        break;
    case SCRIPT_COMMAND:
        sendScriptCmd(t);
        break;
    case STAT_COMMAND:
        sendStatCmd(t);
        break;
    default:
        assert(!"Invalid command index");
    }
}

// Client commands.

void Console::printUseSend(Token& t) {
    const std::string message = Catalog::get(CMD_USE_SEND);
    reportError(message.c_str(), t.Cursor());
}

void Console::forwardText(Command::Type type, Lock& turn, const char* text) {
    unanswered = true;
    if (machine.isToQuit()) return;
    // Running, with an empty store, before the clients can answer.
    machine.parseConsole(StateMachine::COMMON_CMD_EVENT);
    lastData.clearLine();
    const std::string group = curGroupName;
    turn.unlock();
    transmit(type, group, text, -1);
}

void Console::forward(Command::Type type, Token& t) {
    Lock turn = takeTurn();
    if (machine.isInterrupted()) {
        printUseSend(t);
        return;
    }
    const char* text = t.Cursor();
    if (t == ':') {
        ++text;
        if (t.Next() == END) return;
    }
    forwardText(type, turn, text);
}

void Console::sendClientCmd(Token& t) { forward(Command::CLIENT, t); }

void Console::sendInstantCmd(Token& t) {
    if (t.LookAhead() == END) t.Throw(CMD_INSTANT_PARAM);
    forward(Command::INSTANT, t);
}

void Console::sendScriptCmd(Token& t) {
    if (t.LookAhead() == END) t.Throw(CMD_SCRIPT_PARAM);
    forward(Command::SCRIPTCLIENT, t);
}

void Console::sendStatCmd(Token& t) {
    Lock turn = takeTurn();
    if (machine.isInterrupted()) {
        printUseSend(t);
        return;
    }
    const char* text = t.Cursor();
    if (t.Next() != END) {
        for (const std::string& word : Split(t.Cursor(), " ", true)) {
            const std::size_t bar = word.find('|');
            const std::string option = word.substr(0, bar);
            if (!option.empty() && option != "-s" && option != "-i") {
                // The token that is thrown points into the bad field.
                badField = option;
                Token bad(badField.c_str());
                bad.Next();
                bad.Throw(CMD_STAT_PARAM);
            }
            if (bar != std::string::npos) break;
        }
    }
    forwardText(Command::STATCLIENT, turn, text);
}

void Console::sendCommand(Token& t) {
    Lock turn = takeTurn();
    if (!machine.isInterrupted()) {
        turn.unlock();
        sendClientCmd(t);
        return;
    }
    if (t.Next() == END) t.Throw(CMD_AMBIGUOUS);
    const std::string answer = t;
    machine.parseConsole(StateMachine::COMMON_CMD_EVENT);
    const std::string group = curGroupName;
    turn.unlock();
    transmit(Command::PROMPT, group, answer.c_str(), -1);
}

void Console::interruptCommand(Token& t) {
    Lock turn = takeTurn();
    if (!machine.isInterrupted()) return;
    if (t.Next() != END) t.Throw(CMD_INTERRUPT_EXTRA);
    openRequest(OpenRequests::INTERRUPT);
    const std::string group = curGroupName;
    turn.unlock();
    transmit(Command::INTERRUPT, group, nullptr, 0);
}

void Console::leaveCommand(Token& t) {
    const Lock turn = takeTurn();
    if (!machine.isInterrupted()) return;
    if (t.Next() != END) t.Throw(CMD_INTERRUPT_EXTRA);
    machine.parseConsole(StateMachine::COMMON_CMD_EVENT);
}

bool Console::confirm(const char* question) {
    const char* answer = Readline::readCommandLine(question);
    return answer && std::toupper(static_cast<unsigned char>(*answer)) == 'Y';
}

void Console::quitCommand(Token& t) {
    if (t.Next() != END) t.Throw(CMD_INTERRUPT_EXTRA);
    if (!confirm("Really want to quit (all processes)? (y/n) ")) return;
    complete = true;
    quitWanted = true;
    machine.parseConsole(StateMachine::ACTIVE_QUIT_EVENT);
    sendQuit();
}

void Console::exitCommand(Token& t) {
    if (t.Next() != END) t.Throw(CMD_INTERRUPT_EXTRA);
    if (!confirm("Really want to quit (current console only)? (y/n) ")) return;
    complete = true;
    leaveSession();
}

void Console::leaveSession() {
    machine.parseConsole(StateMachine::ACTIVE_QUIT_EVENT);
    // The data loop, which may be reading, closes it.
    client.disconnect();
}

// Groups.

void Console::groupCommand(Token& t) {
    subCmd.reset();
    const TokenType first = t.Next();
    if (first == END) {
        subCmd.setOpType(GroupCommand::QUERY);
        subCmd.setBase("");
        sendGroupCmd();
        return;
    }
    if (first == SYMBOL) t.Throw(CMD_GROUP_NAME);
    const std::string name = t;
    if (t.Next() == END) {
        subCmd.setOpType(GroupCommand::QUERY);
        subCmd.setBase(name);
        sendGroupCmd();
        return;
    }
    if (std::isdigit(static_cast<unsigned char>(name[0]))) t.ThrowPrev(CMD_GROUP_NUMBER);
    if (name == "all") t.ThrowPrev(CMD_GROUP_PREDEFINED);
    groupSubcommand(name, t);
}

void Console::groupSubcommand(const std::string& name, Token& t) {
    subCmd.setBase(name);
    if (t == '-')
        subCmd.setOpType(GroupCommand::DELETE);
    else if (t == '+')
        subCmd.setOpType(GroupCommand::ADD);
    else if (t == '=')
        subCmd.setOpType(GroupCommand::ASSIGN);
    else
        t.Throw(CMD_GROUP_OPERATION);
    if (parseGroupExpression(t)) sendGroupCmd();
}

bool Console::parseGroupExpression(Token& t) {
    enum { FIRST, RANGE, LAST } rangeState = LAST;
    int first = -1;
    for (;;) {
        switch (t.Next()) {
        case IDENTIFIER:
            subCmd.addOperand(std::string(t));
            if (rangeState == RANGE) t.ThrowPrev(CMD_GROUP_RANGE_OPEN);
            if (rangeState == FIRST) subCmd.addOperand(first);
            rangeState = LAST;
            break;
        case NUMBER: {
            const int last = numberOf(t);
            if (last < 0) t.Throw(CMD_GROUP_CLIENT_ID);
            if (rangeState == RANGE) {
                if (first >= last) t.Throw(CMD_GROUP_RANGE_REVERSED);
                const std::int64_t clients = std::int64_t{last} - first + 1;
                if (clients > largestRange || clients + subCmd.numOfId() > largestGroup)
                    t.Throw(CMD_GROUP_CLIENT_ID);
                subCmd.addOperands(first, last);
                rangeState = LAST;
                break;
            }
            if (rangeState == FIRST) subCmd.addOperand(first);
            first = last;
            rangeState = FIRST;
            break;
        }
        case END:
            if (rangeState == RANGE) t.ThrowPrev(CMD_GROUP_RANGE_OPEN);
            if (rangeState == FIRST) subCmd.addOperand(first);
            return true;
        case SYMBOL:
            if (rangeState == FIRST && t == ':') {
                rangeState = RANGE;
                break;
            }
            [[fallthrough]];
        default:
            t.Throw(CMD_GROUP_SYMBOL);
        }
    }
}

void Console::transmitGroup(const GroupCommand& command, const std::string& group) {
    int length = 0;
    const auto packed = command.pack(&length);
    transmit(Command::GROUP, group, packed.get(), length);
}

void Console::sendGroupCmd() {
    std::string group;
    {
        const Lock turn = takeTurn();
        openRequest(OpenRequests::GROUP);
        group = curGroupName;
    }
    transmitGroup(subCmd, group);
}

// The last thing that is done in a turn: the send must not keep the input thread waiting.
void Console::createFilteredGroupCmd(Lock& turn) {
    std::vector<ClientSet::Range> ranges;
    for (const auto& [number, slot] : lastData.slots()) {
        for (const auto& line : slot.lines) {
            const auto& runs = line->clients().ranges();
            ranges.insert(ranges.end(), runs.begin(), runs.end());
        }
    }
    GroupCommand filtered;
    filtered.setBase("FILTERED");
    filtered.setOpType(GroupCommand::ASSIGN);
    filtered.addOperands(ClientSet(std::move(ranges)));
    const std::string group = curGroupName;
    turn.unlock();
    transmitGroup(filtered, group);
}

void Console::onCommand(Token& t) {
    if (t.Next() == END) t.Throw(CMD_ON_GROUP);
    const std::string name = t;
    std::string group;
    {
        const Lock turn = takeTurn();
        openRequest(OpenRequests::ON);
        group = curGroupName;
    }
    transmit(Command::ON, group, name.c_str(), -1);
}

// Option, help, history and match.

void Console::optionCommand(Token& t) {
    const Lock turn = takeTurn();
    if (applyOption(t)) return;
    ++mistakes;
    printDetail(HELP_OPTION_BRIEF, HELP_OPTION_DETAIL);
}

bool Console::applyOption(Token& t) {
    if (t.Next() != IDENTIFIER) return false;
    int index = 0;
    while (index < numOptions && t != optionList[index])
        ++index;
    if (index == numOptions) return false;
    if (index == 0 && !machine.isNormal()) t.Throw(CMD_IN_INTERRUPT);
    if (t.Next() == END) {
        printOption(index);
        return true;
    }
    switch (index) {
    case 0:
        return setBcastOpt(toBcast, t);
    case 1:
        return setColor(c_ecolor, t);
    case 2:
        return setColor(c_scolor, t);
    case 3:
        return setColor(c_dcolor, t);
    case 4:
        return setColor(c_bcolor, t);
    case 5:
        return setDmode(c_dmode, t);
    default:
        printOption(index);
        return true;
    }
}

void Console::printOption(int index) const {
    const std::string value = getConfigValue(optionList[index]);
    switch (index) {
    case 0:
        std::printf("current broadcast mode is %s.\n", value.c_str());
        break;
    case 5:
        std::printf("current dump mode is %s.\n", value.c_str());
        break;
    case 6:
        std::printf("current session number is %d.\n", sessionNum);
        break;
    default:
        std::printf("current color is %s.\n", value.c_str());
    }
}

bool Console::hasCommand(int id) const {
    return !isLuma || (isLumaCommand(id) && id != EXIT_COMMAND);
}

void Console::listCommands() const {
    std::printf("Commands:\n");
    for (const Topic& command : cmdList) {
        if (hasCommand(command.id)) printTopic(command);
    }
    std::printf("\nTopics:\n");
    for (const Topic& topic : topicList)
        printTopic(topic);
    std::printf("\n%s", Catalog::get(HELP_EPILOG));
}

// The first row that the word is a prefix of, commands before topics.
bool Console::showDetail(Token& t) const {
    for (const Topic& command : cmdList) {
        if (!hasCommand(command.id) || t != command.name) continue;
        printDetail(command.brief, command.detail);
        return true;
    }
    for (const Topic& topic : topicList) {
        if (t != topic.name) continue;
        printDetail(topic.brief, topic.detail);
        return true;
    }
    return false;
}

void Console::helpCommand(Token& t) {
    const TokenType type = t.Next();
    if (type == END) {
        listCommands();
        return;
    }
    if (type != IDENTIFIER) t.Throw(CMD_HELP_TOPIC);
    if (showDetail(t)) return;
    // The debuggers have a help of their own.
    t.Retract();
    sendClientCmd(t);
}

void Console::LumahelpCommand(Token& t) {
    const TokenType type = t.Next();
    if (type == END)
        listCommands();
    else if (type != IDENTIFIER || !showDetail(t))
        t.Throw(CMD_HELP_TOPIC);
}

void Console::historyCommand(Token& t) {
    switch (t.Next()) {
    case END:
        readHistoryFile("10");
        break;
    case NUMBER:
        readHistoryFile(t);
        break;
    default:
        t.Throw(CMD_AMBIGUOUS);
    }
}

void Console::matchCommand(Token& t) {
    const Lock turn = takeTurn();
    if (!machine.isNormal()) t.Throw(CMD_IN_INTERRUPT);
    t.Next();
    if (!display(lastData, c_ecolor, c_scolor, c_dcolor, t.Cursor())) ++mistakes;
}

// Completion words.

namespace {

// The words of the lines, in their order; they point into the lines.
void collectWords(const Data& data, std::vector<std::string_view>& words) {
    static constexpr char delimiters[] = " \t+=-/\\<>()[]{}.,;|*&%!?#'@\"";
    for (const auto& [number, slot] : data.slots()) {
        for (const auto& line : slot.lines) {
            const std::string_view text = line->getContent();
            for (std::size_t at = text.find_first_not_of(delimiters); at != text.npos;) {
                const std::size_t end = std::min(text.find_first_of(delimiters, at), text.size());
                const unsigned char c = static_cast<unsigned char>(text[at]);
                if (end - at > 1 && !std::isspace(c) && !std::isdigit(c) && std::isprint(c))
                    words.push_back(text.substr(at, end - at));
                at = text.find_first_not_of(delimiters, end);
            }
        }
    }
}

} // namespace

void Console::addTabContext() {
    std::vector<std::string_view> words;
    collectWords(lastData, words);
    for (const Topic& command : cmdList)
        words.push_back(command.name);
    for (const Topic& topic : topicList)
        words.push_back(topic.name);
    for (const Color& color : colorList)
        words.push_back(color.name);
    words.insert(words.end(), std::begin(optionList), std::end(optionList));
    for (const DumpTopic& mode : dcmdList)
        words.push_back(mode.name);
    for (const BcastTopic& word : bcastList)
        words.push_back(word.name);
    words.push_back("FILTERED");
    Readline::addContexts(words);
}

// Called for every record: as long as no word ever had to make room, all others are there already
// and only those of the record can be new.
void Console::addNewTabContext(const Data& data) {
    std::vector<std::string_view> words;
    collectWords(data, words);
    if (!Readline::addContextsIfRoom(words)) addTabContext();
}

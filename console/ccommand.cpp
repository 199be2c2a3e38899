#include "console/ccommand.h"

#include "common/catalog.h"
#include "common/framereader.h"
#include "common/groupnames.h"
#include "common/split.h"
#include "console/tables.h"

#include <cassert>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdlib>

using namespace Actions;

namespace {

constexpr std::int64_t maxRange = 1 << 20; // clients
// What all ranges of a line may come to: more ids fill no frame that a front end takes.
constexpr std::int64_t maxGroup = 3 * maxRange;
static_assert(maxGroup * 4 < FrameReader::maxFrame);

// The value of a number token; -1 when it does not fit.
int numberOf(const Token& t) {
    errno = 0;
    const long long value = std::strtoll(t.Cursor(), nullptr, 10);
    return errno == 0 && value <= INT32_MAX ? static_cast<int>(value) : -1;
}

void expectEnd(Token& t) {
    if (t.Next() != END) t.Throw(CMD_INTERRUPT_EXTRA);
}

} // namespace

Action CommandLine::parse(const char* line) {
    Token t(line);
    switch (t.Next()) {
    case END:
        return None{};
    case NUMBER:
    case SYMBOL:
        return sendClientCmd(t);
    case IDENTIFIER:
    case QUOTATION:
        break;
    default:
        return Undefined{t};
    }
    int matches = 0;
    int id = -1;
    for (const Topic& command : cmdList) {
        if (context.servesLuma() && command.luma == Luma::ABSENT) continue;
        if (t != command.name) continue;
        ++matches;
        id = command.id;
    }
    if (matches == 0) return sendClientCmd(t);
    if (matches > 1) t.Throw(CMD_AMBIGUOUS);
    return dispatch(id, t);
}

Action CommandLine::dispatch(int id, Token& t) {
    if (id < 0 || id >= numCmds) assert(!"Invalid command index");
    const Topic& command = cmdList[id];
    if (context.servesLuma() && command.luma == Luma::SILENT) return None{};
    return (this->*command.handler)(t);
}

// Client commands.

Action CommandLine::forward(Command::Type type, Token& t) {
    const char* text = t.Cursor();
    if (context.isInterrupted()) return Refuse{text};
    if (t == ':') {
        ++text;
        if (t.Next() == END) return None{};
    }
    return Send{type, text};
}

Action CommandLine::sendClientCmd(Token& t) { return forward(Command::CLIENT, t); }

Action CommandLine::sendInstantCmd(Token& t) {
    if (t.LookAhead() == END) t.Throw(CMD_INSTANT_PARAM);
    return forward(Command::INSTANT, t);
}

Action CommandLine::sendScriptCmd(Token& t) {
    if (t.LookAhead() == END) t.Throw(CMD_SCRIPT_PARAM);
    return forward(Command::SCRIPTCLIENT, t);
}

Action CommandLine::sendStatCmd(Token& t) {
    const char* text = t.Cursor();
    if (context.isInterrupted()) return Refuse{text};
    if (t.Next() != END) {
        for (const std::string& word : Split(t.Cursor(), " ", true)) {
            const std::size_t bar = word.find('|');
            const std::string option = word.substr(0, bar);
            if (!option.empty() && option != "-s" && option != "-i") {
                badField = option;
                Token bad(badField.c_str());
                bad.Next();
                bad.Throw(CMD_STAT_PARAM);
            }
            if (bar != std::string::npos) break;
        }
    }
    return Send{Command::STATCLIENT, text};
}

Action CommandLine::sendCommand(Token& t) {
    if (!context.isInterrupted()) return sendClientCmd(t);
    if (t.Next() == END) t.Throw(CMD_AMBIGUOUS);
    return Send{Command::PROMPT, t};
}

Action CommandLine::interruptCommand(Token& t) {
    if (!context.isInterrupted()) return None{};
    expectEnd(t);
    return Send{Command::INTERRUPT, ""};
}

Action CommandLine::leaveCommand(Token& t) {
    if (!context.isInterrupted()) return None{};
    expectEnd(t);
    return Leave{};
}

Action CommandLine::quitCommand(Token& t) {
    expectEnd(t);
    return Quit{};
}

Action CommandLine::exitCommand(Token& t) {
    expectEnd(t);
    return Exit{};
}

// Groups.

Action CommandLine::groupCommand(Token& t) {
    subCmd.reset();
    subCmd.setOpType(GroupCommand::QUERY);
    const TokenType first = t.Next();
    if (first == SYMBOL) t.Throw(CMD_GROUP_NAME);
    const std::string name = t;
    subCmd.setBase(name);
    if (first == END || t.Next() == END) return Group{subCmd};
    if (std::isdigit(static_cast<unsigned char>(name[0]))) t.ThrowPrev(CMD_GROUP_NUMBER);
    if (name == GroupNames::all) t.ThrowPrev(CMD_GROUP_PREDEFINED);
    return groupSubcommand(t);
}

Action CommandLine::groupSubcommand(Token& t) {
    if (t == '-')
        subCmd.setOpType(GroupCommand::DELETE);
    else if (t == '+')
        subCmd.setOpType(GroupCommand::ADD);
    else if (t == '=')
        subCmd.setOpType(GroupCommand::ASSIGN);
    else
        t.Throw(CMD_GROUP_OPERATION);
    parseGroupExpression(t);
    return Group{subCmd};
}

void CommandLine::parseGroupExpression(Token& t) {
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
                if (clients > maxRange || clients + subCmd.numOfId() > maxGroup)
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
            return;
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

Action CommandLine::onCommand(Token& t) {
    if (t.Next() == END) t.Throw(CMD_ON_GROUP);
    return Send{Command::ON, t};
}

// Option, help, history and match.

Action CommandLine::optionCommand(Token& t) {
    const bool normal = context.isNormal();
    if (t.Next() != IDENTIFIER) return OptionUsage{};
    int option = 0;
    while (option < numOptions && t != optionList[option])
        ++option;
    if (option == numOptions) return OptionUsage{};
    if (option == BROADCAST_OPTION && !normal) t.Throw(CMD_IN_INTERRUPT);
    if (t.Next() == END || option == SESSION_OPTION) return ShowOption{option};
    return SetOption{option, t};
}

// The first row that the word is a prefix of, commands before topics.
const Topic* CommandLine::findTopic(const Token& t) const {
    for (const Topic& command : cmdList) {
        if (command.isShown(context.servesLuma()) && t == command.name) return &command;
    }
    for (const Topic& topic : topicList) {
        if (t == topic.name) return &topic;
    }
    return nullptr;
}

Action CommandLine::helpCommand(Token& t) {
    if (context.servesLuma()) return LumahelpCommand(t);
    const TokenType type = t.Next();
    if (type == END) return Help{nullptr};
    if (type != IDENTIFIER) t.Throw(CMD_HELP_TOPIC);
    if (const Topic* topic = findTopic(t)) return Help{topic};
    // The debuggers have a help of their own.
    t.Retract();
    return sendClientCmd(t);
}

Action CommandLine::LumahelpCommand(Token& t) {
    const TokenType type = t.Next();
    if (type == END) return Help{nullptr};
    const Topic* topic = type == IDENTIFIER ? findTopic(t) : nullptr;
    if (!topic) t.Throw(CMD_HELP_TOPIC);
    return Help{topic};
}

Action CommandLine::historyCommand(Token& t) {
    switch (t.Next()) {
    case END:
        return History{"10"};
    case NUMBER:
        return History{t};
    default:
        t.Throw(CMD_AMBIGUOUS);
    }
}

Action CommandLine::matchCommand(Token& t) {
    if (!context.isNormal()) t.Throw(CMD_IN_INTERRUPT);
    t.Next();
    return Match{t.Cursor()};
}

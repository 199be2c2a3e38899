#include "console/ccommand.h"
#include "console/tables.h"
#include "tests/support/testing.h"

#include <string>
#include <variant>

namespace {

enum State { NORMAL, INTERRUPTED, LUMA };

// What a line asks for in a state, in words: that of the action and what it holds, or the number
// of the message and where the line is wrong.
class CommandLineTest : public testing::Test, protected CommandLine::Context {
  protected:
    State state = NORMAL;
    CommandLine commands{*this};

    bool servesLuma() const override { return state == LUMA; }
    bool isNormal() override { return state != INTERRUPTED; }
    bool isInterrupted() override { return state == INTERRUPTED; }

    std::string asked(const std::string& line, State in = NORMAL) {
        state = in;
        try {
            return std::visit([](const auto& action) { return words(action); },
                              commands.parse(line.c_str()));
        } catch (const Token& wrong) {
            return std::string(wrong.Error()).substr(5, 3) + " at '" + wrong.Cursor() + "'";
        }
    }

    static std::string words(const Actions::None&) { return "nothing"; }
    static std::string words(const Actions::Send& command) {
        static const char* const types[] = {"CONFIG", "ATTACHCFG", "CLIENT", "INSTANT",
                                            "SCRIPT", "STAT",      "PROMPT", "GROUP",
                                            "ON",     "INTERRUPT", "QUIT"};
        return std::string(types[command.type]) + (command.text.empty() ? "" : " ") + command.text;
    }
    static std::string words(const Actions::Group& action) {
        const GroupCommand& group = action.command;
        std::string text = "group '" + group.getBase() + "' " + "?=+-"[group.getOpType()];
        for (const std::string& name : group.names())
            text += " " + name;
        return text + (group.ids().str().empty() ? "" : " " + group.ids().str());
    }
    static std::string words(const Actions::Leave&) { return "leave"; }
    static std::string words(const Actions::Quit&) { return "quit"; }
    static std::string words(const Actions::Exit&) { return "exit"; }
    static std::string words(const Actions::ShowOption& shown) {
        return std::string("show ") + optionList[shown.option];
    }
    static std::string words(const Actions::SetOption& change) {
        return std::string("set ") + optionList[change.option] + " " + std::string(change.value);
    }
    static std::string words(const Actions::OptionUsage&) { return "option usage"; }
    static std::string words(const Actions::Help& help) {
        return std::string("help ") + (help.topic ? help.topic->name : "on all");
    }
    static std::string words(const Actions::History& history) { return "history " + history.count; }
    static std::string words(const Actions::Match& match) { return "match " + match.cascade; }
    static std::string words(const Actions::Refuse& refused) { return "refuse " + refused.line; }
    static std::string words(const Actions::Undefined& quotation) {
        return std::string("undefined ") + quotation.word.Cursor();
    }
};

TEST_F(CommandLineTest, ALineInAnActionOut) {
    const struct {
        const char* line;
        const char* action;
        State state = NORMAL;
    } table[] = {
        // Whose command it is.
        {" ", "nothing"},
        {"where 1", "CLIENT where 1"},
        {" 5", "CLIENT 5"},
        {"'help'", "CLIENT 'help'"},
        {"'abc", "undefined 'abc"},
        {":help x", "CLIENT help x"},
        {": x", "CLIENT  x"},
        {":", "nothing"},
        {"s", "501 at 's'"},
        {"o x", "501 at 'o x'"},
        {"groups", "CLIENT groups"},
        {"print", "refuse print", INTERRUPTED},
        {":", "refuse :", INTERRUPTED},
        {"s y", "CLIENT s y", LUMA},
        {"m", "CLIENT m", LUMA},
        {"exit now", "nothing", LUMA},

        // Client commands of other kinds.
        {"ins print x", "INSTANT ins print x"},
        {"instant", "551 at 'instant'", INTERRUPTED},
        {"script a", "refuse script a", INTERRUPTED},
        {"sc", "552 at 'sc'"},
        {"stat", "STAT stat"},
        {"stat -s -i | sort -x", "STAT stat -s -i | sort -x"},
        {"stat -s| x", "STAT stat -s| x"},
        {"stat -s -x|y", "553 at '-x'"},
        {"stat -x", "refuse stat -x", INTERRUPTED},

        // Commands of the interrupted state, and ends.
        {"send y", "CLIENT send y"},
        {"send yes please", "PROMPT yes", INTERRUPTED},
        {"send", "501 at ''", INTERRUPTED},
        {"interrupt x", "nothing"},
        {"interrupt", "INTERRUPT", INTERRUPTED},
        {"interrupt x y", "540 at 'x y'", INTERRUPTED},
        {"leave x", "nothing"},
        {"leave", "leave", INTERRUPTED},
        {"leave x", "540 at 'x'", INTERRUPTED},
        {"kquit", "quit"},
        {"kquit 1", "540 at '1'"},
        {"e", "exit", INTERRUPTED},
        {"exit x", "540 at 'x'"},

        // Groups.
        {"on", "550 at ''"},
        {"on g1 g2", "ON g1", INTERRUPTED},
        {"group", "group '' ?"},
        {"g all", "group 'all' ?"},
        {"group g = 0:3 7 g2", "group 'g' = g2 0:3 7 "},
        {"group g + 5 h 1:2", "group 'g' + h 1:2 5 "},
        {"group g - 2:4", "group 'g' - 2:4 "},
        {"group g =", "group 'g' ="},
        {"group + 1", "510 at '+ 1'"},
        {"group 5 = 1", "512 at '5 = 1'"},
        {"group all + 1", "513 at 'all + 1'"},
        {"group g * 1", "514 at '* 1'"},
        {"group g = 99999999999", "515 at '99999999999'"},
        {"group g = 3:1", "516 at '1'"},
        {"group g = 3:3 4", "516 at '3 4'"},
        {"group g = 1,2", "517 at ',2'"},
        {"group g = 1 :", "518 at ':'"},
        {"group g = 1:h", "518 at ':h'"},
        {"group g = :3", "517 at ':3'"},
        {"group g = 'h'", "517 at ''h''"},

        // Options.
        {"option", "option usage"},
        {"option foo", "option usage"},
        {"op s", "show scolor"},
        {"option se 3", "show session"},
        {"option b on", "set broadcast on"},
        {"option b on", "500 at 'b on'", INTERRUPTED},
        {"option eco re x", "set ecolor re", INTERRUPTED},

        // Help, history and match.
        {"help", "help on all"},
        {"help h", "help help"},
        {"help op", "help option"},
        {"help print", "CLIENT help print"},
        {"help 5", "530 at '5'"},
        {"help op", "530 at 'op'", LUMA},
        {"help s", "help send", LUMA},
        {"help e", "help editing", LUMA},
        {"history", "history 10"},
        {"hi 025 x", "history 025"},
        {"history x", "501 at 'x'"},
        {"match", "match "},
        {"match 'a' | match 'b'", "match 'a' | match 'b'"},
        {"match a", "500 at 'match a'", INTERRUPTED},
    };
    for (const auto& [line, action, in] : table)
        EXPECT_EQ(asked(line, in), action) << line;
}

// Dispatch finds a command by its id.
TEST_F(CommandLineTest, RowsStandAtTheirIds) {
    for (int id = 0; id < numCmds; ++id)
        EXPECT_EQ(cmdList[id].id, id);
}

} // namespace

// What the front end answers, and what the user sees of it.
#include "tests/support/session.h"

using Replies = Session;

TEST_F(Replies, AFailedRequestShowsItsMessageBeforeThePrompt) {
    const struct {
        int error;
        std::string text, shown;
    } failures[] = {
        {0, "ignored", ""},
        {511, "", "3917-511  Group not found.\n"},
        {600, "g5", "3917-600  Group g5 is empty and deleted.\n\n"},
        {601, "%n%s%d", "3917-601  Group %n%s%d is empty and not added.\n\n"},
        {600, std::string(100000, 'g'), "3917-600  Group " + std::string(1023 - 16, 'g') + "\n"},
        {-7, "no such thing", "Unknown error -7: no such thing\n"},
    };
    begin();
    for (const auto& [error, text, shown] : failures) {
        console->type("group\n");
        EXPECT_EQ(frontEnd.expectGroup().getOpType(), GroupCommand::QUERY);
        console->until("group\n");
        frontEnd.reply(Reply::FAILED, error, text);
        EXPECT_EQ(prompt("(all) "), shown) << error;
    }
    command("run");
    frontEnd.reply(Reply::FAILED, 519);
    EXPECT_EQ(prompt("(all) "), "3917-519  Group busy.\n");
}

TEST_F(Replies, NewsOfClientsArePrintedAndChangeNothing) {
    begin();
    command("run");
    frontEnd.reply(Reply::CLIENT_ADD, 8, "node1:4711");
    frontEnd.reply(Reply::CLIENT_REMOVE, 3, "ignored");
    frontEnd.reply(static_cast<Reply::Value>(6), 1, "ignored"); // of a newer front end
    EXPECT_EQ(finish(), "A new client 8 was forked:node1:4711\nClient 3 was terminated\n");
}

TEST_F(Replies, LinesThatNeverReachTheFrontEnd) {
    const struct {
        const char* line;
        const char* shown;
    } lines[] = {
        {"   ", ""},
        {":", ""},
        {"interrupt", ""},
        {"leave", ""},
        {"h", "3917-501  Ambiguous command. Error near: h<END>\n"},
        {"s -x", "3917-501  Ambiguous command. Error near: s -x<END>\n"},
        {"on", "3917-550  Must specify an existing group. Error near: <END>\n"},
        {"group 5 = 1", "3917-512  Cannot create or change a number-named group. Error near: "
                        "5 = 1<END>\n"},
        {"group all = 1", "3917-513  Cannot change a predefined group. Error near: "
                          "all = 1<END>\n"},
        {"group g1 * 1", "3917-514  Invalid group operation. Error near: * 1<END>\n"},
        {"group g1 = 0:99999999", "3917-515  Invalid client ID. Error near: 99999999<END>\n"},
        {"group g1 = 99999999999", "3917-515  Invalid client ID. Error near: 99999999999<END>\n"},
        {"group g1 = 3:3 4", "3917-516  Reversed range. Error near: 3 4<END>\n"},
        {"group g1 = 1,2", "3917-517  Invalid symbol. Error near: ,2<END>\n"},
        {"group g1 = 'x'", "3917-517  Invalid symbol. Error near: 'x'<END>\n"},
        {"group g1 = 1:", "3917-518  Invalid open range. Error near: :<END>\n"},
        {"kquit now", "3917-540  Extra parameters. Error near: now<END>\n"},
        {"instant", "3917-551  Must specify actual debugger command as argument for instant "
                    "command. Error near: instant<END>\n"},
        {"script", "3917-552  Must specify actual external shell script or binary file as "
                   "argument for script command. Error near: script<END>\n"},
        {"stat -s -x y",
         "3917-553  Not a valid option for \"stat\" command. Error near: -x<END>\n"},
    };
    begin();
    for (const auto& [line, shown] : lines)
        EXPECT_EQ(answerTo(line), shown) << line;
    EXPECT_FALSE(frontEnd.hasCommand());
}

TEST_F(Replies, LinesThatGoToTheClientsAsTyped) {
    const struct {
        const char* line;
        Command::Type type;
        const char* text;
    } lines[] = {
        {"  where  ", Command::CLIENT, "where  "},
        {":  help me", Command::CLIENT, "  help me"},
        {"'help'", Command::CLIENT, "'help'"},
        {"insta run", Command::INSTANT, "insta run"},
        {"script ./x | y", Command::SCRIPTCLIENT, "script ./x | y"},
        {"stat -s -i | sort -x", Command::STATCLIENT, "stat -s -i | sort -x"},
        {"whe\x08re\x01:\x05x", Command::CLIENT, "whrex"},
    };
    begin();
    for (const auto& [line, type, text] : lines) {
        console->type(std::string(line) + "\n");
        frontEnd.expectCommand(type, text);
        finish();
    }
}

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
        enter("group");
        EXPECT_EQ(frontEnd.expectGroup().getOpType(), GroupCommand::QUERY);
        frontEnd.reply(Reply::FAILED, error, text);
        EXPECT_EQ(prompt("(all) "), shown) << error;
    }
    command("run");
    // News of clients are printed and change nothing, those of a newer front end are ignored.
    frontEnd.reply(Reply::CLIENT_ADD, 8, "node1:4711");
    frontEnd.reply(Reply::CLIENT_REMOVE, 3, "ignored");
    frontEnd.reply(static_cast<Reply::Value>(6), 1, "ignored");
    frontEnd.reply(Reply::FAILED, 519);
    EXPECT_EQ(prompt("(all) "), "A new client 8 was forked:node1:4711\nClient 3 was terminated\n"
                                "3917-519  Group busy.\n");
}

TEST_F(Replies, LinesThatNeverReachTheFrontEnd) {
    const struct {
        const char *line, *problem, *near;
    } lines[] = {
        {"h", "501  Ambiguous command.", "h"},
        {"s -x", "501  Ambiguous command.", "s -x"},
        {"on", "550  Must specify an existing group.", ""},
        {"group 5 = 1", "512  Cannot create or change a number-named group.", "5 = 1"},
        {"group all = 1", "513  Cannot change a predefined group.", "all = 1"},
        {"group g1 * 1", "514  Invalid group operation.", "* 1"},
        {"group g1 = 0:1048576", "515  Invalid client ID.", "1048576"},
        {"group g1 = 99999999999", "515  Invalid client ID.", "99999999999"},
        {"group g1 = 3:3 4", "516  Reversed range.", "3 4"},
        {"group g1 = 1,2", "517  Invalid symbol.", ",2"},
        {"group g1 = 'x'", "517  Invalid symbol.", "'x'"},
        {"group g1 = 1:", "518  Invalid open range.", ":"},
        {"kquit now", "540  Extra parameters.", "now"},
        {"stat -s -x y", "553  Not a valid option for \"stat\" command.", "-x"},
        {"instant", "551  Must specify actual debugger command as argument for instant command.",
         "instant"},
        {"script",
         "552  Must specify actual external shell script or binary file as argument for "
         "script command.",
         "script"},
    };
    begin();
    for (const auto& [line, problem, near] : lines)
        EXPECT_EQ(answerTo(line),
                  std::string("3917-") + problem + " Error near: " + near + "<END>\n");
    for (const char* line : {"   ", ":", "interrupt", "leave"})
        EXPECT_EQ(answerTo(line), "") << line;
    EXPECT_FALSE(frontEnd.hasCommand());
    // The limit is of one range.
    enter("group g1 = 0:1048575 1048576:1048577");
    EXPECT_EQ(frontEnd.expectGroup().ids().str(), "0:1048577 ");
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

// The order of effects between the user's lines, the front end's answers and the screen.
#include "tests/support/session.h"

using Order = Session;

// Every answer is on its way before the console can have looked: it must neither clear the first
// output nor lose the reply, and the script's lines follow one after the other.
TEST_F(Order, AScriptAgainstAFrontEndThatAnswersAtOnce) {
    constexpr int rounds = 300;
    std::string script, screen = "\x1b[?7h\x1b[?45h";
    for (int i = 0; i < rounds; ++i)
        script += "print " + std::to_string(i) + "\ngroup g = " + std::to_string(i) + "\n";
    launch(script);
    frontEnd.accept(id);
    for (int i = 0; i < rounds; ++i) {
        const std::string number = std::to_string(i), client = std::to_string(i % 8);
        frontEnd.expectCommand(Command::CLIENT, "print " + number);
        frontEnd.raw(frontEnd.bytes(frontEnd.text(id, {{0, {i % 8}, "out " + number}})) +
                     frontEnd.bytes(frontEnd.status(Data::READY, id)));
        // Only this command's output counts, and all of it.
        ASSERT_EQ(frontEnd.expectFiltered(), client + " ");
        ASSERT_FALSE(frontEnd.hasCommand());
        frontEnd.success();
        ASSERT_EQ(frontEnd.expectGroup().ids().str(), number + " ");
        ASSERT_FALSE(frontEnd.hasCommand());
        const std::string members = i % 2 ? "" : "g: " + number + "\n";
        frontEnd.reply(i % 2 ? Reply::SUCCESS : Reply::GROUP_QUERY, 0, members);
        screen += "(all) print " + number + "\n" + green + client + " | out " + number + eol +
                  "(all) group g = " + number + "\n" + members;
    }
    frontEnd.expectClosed();
    expectEnd();
    EXPECT_TRUE(console->screen().starts_with(screen));
}

TEST_F(Order, OutputOfOtherConsolesIsShownOnRequestOnly) {
    begin();
    const Data theirs = frontEnd.text(id + 1, {{0, {0, 1}, "theirs"}}, "info threads");
    frontEnd.send(theirs);
    frontEnd.ready(id + 1);
    frontEnd.reply(Reply::CLIENT_REMOVE, 3);
    EXPECT_EQ(console->until("Client 3 was terminated\n"), "");
    EXPECT_EQ(answerTo("option broadcast on"), "broadcast mode on.\n");
    frontEnd.send(theirs);
    EXPECT_EQ(console->until("0:1 | theirs" + eol), "info threads\n" + white);
    // None of it belongs to this console's own last output.
    command("next");
    frontEnd.ready(id);
    EXPECT_EQ(frontEnd.expectFiltered(), "");
}

TEST_F(Order, AQuitOfAnotherConsoleSwitchesToAllAndPromptsOnce) {
    begin();
    ask("on g1", Command::ON, "g1");
    frontEnd.reply(Reply::ON_NORMAL, 0, "g1");
    prompt("(g1) ");
    const auto otherQuits = [this](Reply::Value answer, const char* next) {
        frontEnd.send(frontEnd.status(Data::QUIT, id + 1));
        frontEnd.expectCommand(Command::ON, "all");
        frontEnd.reply(answer, 0, "all");
        EXPECT_EQ(prompt(next), "\n");
    };
    otherQuits(Reply::ON_NORMAL, "(all) ");
    EXPECT_EQ(ask("where", Command::CLIENT).getGroup(), "all");
    otherQuits(Reply::ON_INTERRUPT, "(all:int) ");
    frontEnd.finish(id);
    EXPECT_EQ(answerTo(""), "");
    // A group that is gone leads back to all as well.
    enter("group g1 - 0:3");
    EXPECT_EQ(frontEnd.expectGroup().getOpType(), GroupCommand::DELETE);
    frontEnd.reply(Reply::SUCCESS, 0, "NULL");
    frontEnd.expectCommand(Command::ON, "all");
    frontEnd.reply(Reply::ON_NORMAL, 0, "all");
    EXPECT_EQ(prompt("(all) "), "");
}

// The user's line and the answer to another console's end are sent by different threads at the same
// time; every frame arrives whole and every line exactly once.
TEST_F(Order, TwoThreadsNeverMixTheirFrames) {
    constexpr int rounds = 200;
    const std::string padding(1000, 'x');
    std::string script;
    for (int i = 0; i < rounds; ++i)
        script += "p" + std::to_string(i) + " " + padding + "\n";
    launch(script);
    frontEnd.accept(id);
    const std::string quit = frontEnd.bytes(frontEnd.status(Data::QUIT, id + 1));
    for (int seen = 0, asked = 0; seen < rounds || asked < rounds;) {
        const Command next = frontEnd.expectCommand();
        if (next.getType() == Command::CLIENT) {
            ASSERT_EQ(next.getContent(), "p" + std::to_string(seen++) + " " + padding);
            frontEnd.raw(frontEnd.bytes(frontEnd.status(Data::READY, id)) + quit);
        } else if (next.getType() == Command::GROUP) {
            frontEnd.success();
        } else {
            ASSERT_EQ(next.getType(), Command::ON);
            ASSERT_STREQ(next.getContent(), "all");
            ++asked;
            frontEnd.reply(Reply::ON_NORMAL, 0, "all");
        }
    }
}

// Answers and requests that cross on their way, and ends in the middle of something.
#include "tests/support/session.h"

using Crossing = Session;

// READY was on its way when the user asked for something in interrupt state: no prompt and no next
// command before both that and the FILTERED request are answered, in whichever way.
TEST_F(Crossing, ReadyAndARequestOfTheUser) {
    const struct {
        const char* typed;
        Command::Type sent;
        Reply reply;
        const char* prompt;
    } cases[] = {
        {"group", Command::GROUP, frontEnd.answer(Reply::GROUP_QUERY, 0, "all\n"), "(all) "},
        {"group g = 9", Command::GROUP, Reply(Reply::FAILED, 515), "(all) "},
        {"on 3", Command::ON, frontEnd.answer(Reply::ON_NORMAL, 0, "3"), "(3) "},
    };
    begin();
    for (const auto& c : cases) {
        interrupted();
        ask(c.typed, c.sent);
        frontEnd.ready(id);
        frontEnd.expectFiltered();
        frontEnd.send(c.reply);
        // The main thread has gone through the reply when this text is there.
        frontEnd.reply(Reply::CLIENT_ADD, 8, "x");
        EXPECT_EQ(console->until("A new client 8 was forked:x\n").find("(all"), std::string::npos)
            << c.typed;
        console->type("next\n");
        EXPECT_FALSE(frontEnd.waitForCommand(std::chrono::milliseconds(50))) << c.typed;
        frontEnd.success();
        console->until(c.prompt);
        frontEnd.expectCommand(Command::CLIENT, "next");
        frontEnd.finish(id);
        prompt(c.prompt);
    }
}

// An interrupt and the answer to another console's end are open at the same time. The first answer
// is the interrupt's; READY, which answers interrupts, does not take the other one's place.
TEST_F(Crossing, TwoOpenRequestsAreAnsweredInOrder) {
    begin();
    interrupted();
    ask("interrupt", Command::INTERRUPT, "");
    frontEnd.send(frontEnd.status(Data::QUIT, id + 1));
    frontEnd.expectCommand(Command::ON, "all");
    frontEnd.success();
    frontEnd.ready(id);
    frontEnd.expectFiltered();
    frontEnd.reply(Reply::ON_NORMAL, 0, "all");
    console->type("next\n");
    EXPECT_FALSE(frontEnd.waitForCommand(std::chrono::milliseconds(50)));
    frontEnd.success();
    frontEnd.expectCommand(Command::CLIENT, "next");
    frontEnd.finish(id);
}

// Ctrl-C while FILTERED is open: what is typed next waits for the answer, and the console does not
// stay in an interrupt state with nothing to interrupt.
TEST_F(Crossing, CtrlCBeforeTheAnswerToFiltered) {
    begin();
    command("run");
    frontEnd.ready(id);
    frontEnd.expectFiltered();
    console->signal(SIGINT);
    console->type("group\n");
    EXPECT_FALSE(frontEnd.waitForCommand(std::chrono::milliseconds(50)));
    frontEnd.success();
    frontEnd.expectCommand(Command::GROUP);
    frontEnd.reply(Reply::GROUP_QUERY, 0, "all (8): 0:7\n");
    console->until("all (8): 0:7\n");
    prompt("(all) ");
    command("where");
}

// The input thread is stuck in a send that nobody reads when the data loop ends.
TEST_F(Crossing, ABlockedSendEndsWithTheSession) {
    begin();
    enter("group g = 0:1000000");
    ASSERT_TRUE(frontEnd.waitForCommand(std::chrono::seconds(60)));
    frontEnd.raw(Frame::wrap(KIND_DATA, "", 0));
    expectEnd();
}

// Ctrl-C without end, up to the last moment of the process.
TEST_F(Crossing, CtrlCDuringTheEnd) {
    for (int round = 0; round < 20; ++round) {
        begin();
        console->type("exit\ny\n");
        while (console->running())
            console->signal(SIGINT);
        expectEnd();
        frontEnd.close();
    }
}

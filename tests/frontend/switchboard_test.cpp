#include "common/brokenconnection.h"
#include "frontend/gdb.h"
#include "frontend/switchboard.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using Events = std::vector<std::string>;

// A switchboard with four clients and consoles 1 and 2, whose acts are written down: "1 READY",
// "2 FAILED 519", "1 TEXT 0@0:3 hello", "type 0 where" and so on.
class SwitchboardTest : public testing::Test, private Switchboard::Outlet {
  protected:
    Gdb gdb{"gdb"};
    Switchboard board{4, gdb, *this};
    Clock::time_point now{};
    Events log;

    SwitchboardTest() {
        board.consoleJoined(1);
        board.consoleJoined(2);
    }

    // What happened since the last call; of the typing, only whether there was any.
    Events happened() { return std::exchange(log, {}); }

    void send(int console, Command::Type type, const std::string& group,
              const std::string& text = "") {
        Command command;
        command.init(console, group, type, text.c_str(),
                     type == Command::INTERRUPT || type == Command::QUIT ? 0 : -1);
        board.command(console, command, now);
    }
    void group(int console, GroupCommand::Type type, const std::string& base,
               const ClientSet& ids = {}) {
        GroupCommand operation;
        operation.setOpType(type);
        operation.setBase(base);
        if (!ids.empty()) operation.addOperands(ids);
        int length = 0;
        const auto body = operation.pack(&length);
        Command command;
        command.init(console, "all", Command::GROUP, body.get(), length);
        board.command(console, command, now);
    }
    void filtered(int console) { group(console, GroupCommand::ASSIGN, "FILTERED", {0}); }
    void prints(const ClientSet& ids, const std::string& text) {
        for (int id : ids)
            board.output(id, text, now);
    }
    void prompts(const ClientSet& ids) {
        for (int id : ids)
            board.prompted(id, now);
    }
    void pass(std::chrono::milliseconds time) {
        const auto end = now + time;
        while (board.deadline() && *board.deadline() <= end) {
            now = std::max(now, *board.deadline());
            board.tick(now);
        }
        now = end;
    }
    // A command of console 1 to a group, with what it does by itself.
    void running(const std::string& name = "all") {
        send(1, Command::CLIENT, name, "continue");
        log.clear();
    }

  private:
    void toConsole(int console, const Reply& reply) override {
        static const char* const names[] = {"FAILED", "SUCCESS",    "ON_NORMAL", "ON_INTERRUPT",
                                            "QUERY",  "CLIENT_ADD", "REMOVE"};
        std::string text = std::to_string(console) + " " + names[reply.getRetValue() + 1];
        if (reply.getErrCode() != 0 || reply.getRetValue() > Reply::GROUP_QUERY)
            text += " " + std::to_string(reply.getErrCode());
        if (!reply.getRetInfo().empty()) text += " " + reply.getRetInfo();
        log.push_back(text);
    }
    void toConsole(int console, const Data& data) override {
        const std::string to = std::to_string(console) + " ";
        if (data.getType() == Data::READY)
            log.push_back(to + "READY " + std::to_string(data.getConsoleID()));
        else if (data.getType() == Data::QUIT)
            log.push_back(to + "QUIT " + std::to_string(data.getConsoleID()));
        else if (console == 1 || data.getConsoleID() == 2)
            for (const auto& [number, slot] : data.slots()) {
                for (const auto& line : slot.lines)
                    log.push_back(to + std::to_string(number) + "@" + line->clients().str() +
                                  line->getContent());
            }
    }
    void toClient(int client, const std::string& line) override {
        log.push_back("type " + std::to_string(client) + " " + line);
    }
    void startHelper(int client, const std::string& command, const std::string& input) override {
        log.push_back("start " + std::to_string(client) + " " + command + " < " + input);
    }
    void stopHelper(int client) override { log.push_back("stop " + std::to_string(client)); }
    bool isProgram(const std::string& name) override { return name == "grep" || name == "./it"; }
    std::string describe(int client) override { return "task of " + std::to_string(client); }
    void interrupt(int client) override { log.push_back("SIGINT " + std::to_string(client)); }
    void sessionOver() override { log.push_back("over"); }
};

TEST_F(SwitchboardTest, ACommandGoesToTheGroupAndItsAnswersComeBackMerged) {
    group(1, GroupCommand::ASSIGN, "odd", {1, 3});
    happened();
    send(1, Command::CLIENT, "odd", "print 1");
    EXPECT_EQ(happened(), (Events{"type 1 print 1", "type 3 print 1"}));
    prints({1, 3}, "$1 = 1\n");
    prints({3}, "and more");
    prompts({1});
    EXPECT_EQ(happened(), Events());
    prompts({3});
    EXPECT_EQ(happened(), (Events{"1 0@1 3 $1 = 1", "1 1@3 and more", "1 READY 1"}));
    filtered(1);
    EXPECT_EQ(happened(), Events{"1 SUCCESS"});
}

TEST_F(SwitchboardTest, ASlowClientDoesNotHoldBackTheOthers) {
    running();
    prints({0, 1, 2}, "ready\n");
    prompts({0, 1, 2});
    pass(199ms);
    EXPECT_EQ(happened(), Events());
    pass(1ms);
    EXPECT_EQ(happened(), Events{"1 0@0:2 ready"});
    prints({3}, "late\n");
    prompts({3});
    EXPECT_EQ(happened(), (Events{"1 0@3 late", "1 READY 1"}));
}

TEST_F(SwitchboardTest, MuchThatAllSayIsShownOnceAndDoesNotWaitForTheSlow) {
    running();
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += "equal\n"; // 1.5 MB when gathered
    for (int id = 0; id < 4; ++id) {
        prints({id}, text);
        pass(20ms);
    }
    const auto all = happened();
    EXPECT_EQ(all.size(), 20000u);
    EXPECT_EQ(all.back(), "1 19999@0:3 equal");
    prints({0, 1, 2}, text);
    pass(200ms);
    EXPECT_EQ(happened().size(), 20000u);
    // All that is kept back is 16 MB.
    for (int i = 0; i < 12; ++i)
        prints({0}, text);
    EXPECT_GT(happened().size(), 200000u);
}

TEST_F(SwitchboardTest, AnUnfinishedLineWaitsAndIsThenSentAsItStands) {
    running();
    prints({0}, "a\nhalf");
    pass(100ms);
    prints({1}, "younger");
    pass(100ms);
    EXPECT_EQ(happened(), (Events{"1 0@0 a", "1 1@0 half"}));
    prints({0}, " more\n");
    pass(100ms);
    EXPECT_EQ(happened(), (Events{"1 0@1 younger", "1 2@0  more"}));
    EXPECT_GT(board.deadline(), now + 4s);
}

TEST_F(SwitchboardTest, LineNumbersBeginAnewWithEachCommand) {
    for (int round = 0; round < 2; ++round) {
        running("0");
        prints({0}, "x\ny\n");
        prompts({0});
        EXPECT_EQ(happened(), (Events{"1 0@0 x", "1 1@0 y", "1 READY 1"}));
        filtered(1);
        happened();
    }
}

TEST_F(SwitchboardTest, RefusesWhatCannotStart) {
    send(1, Command::CLIENT, "nosuch", "where");
    EXPECT_EQ(happened(), Events{"1 FAILED 511"});
    running("2");
    send(2, Command::CLIENT, "all", "where");
    EXPECT_EQ(happened(), Events{"2 FAILED 519"});
    send(2, Command::CLIENT, "3", "where");
    EXPECT_EQ(happened(), Events{"type 3 where"});
    send(1, Command::CLIENT, "2", "where");
    EXPECT_EQ(happened(), Events{"1 FAILED 519"});
    send(1, Command::STATCLIENT, "0", "stat -s | nosuch");
    EXPECT_EQ(happened(), (Events{"1 0@0 cannot find the program 'nosuch'", "1 FAILED"}));
    send(1, Command::SCRIPTCLIENT, "0", "script it");
    EXPECT_EQ(happened(), (Events{"1 0@0 cannot run 'it': a program of this directory needs its "
                                  "path, ./it",
                                  "1 FAILED"}));
    send(1, Command::ON, "all", "nosuch");
    EXPECT_EQ(happened(), Events{"1 FAILED 511"});
}

TEST_F(SwitchboardTest, InstantSendsEachClientsOutputAsItComes) {
    send(1, Command::INSTANT, "all", "inst  info line");
    EXPECT_EQ(happened()[0], "type 0 info line");
    prints({0, 1}, "x\n");
    EXPECT_EQ(happened(), (Events{"1 0@0 x", "1 0@1 x"}));
    prompts({0, 1, 2, 3});
    EXPECT_EQ(happened(), Events{"1 READY 1"});
}

TEST_F(SwitchboardTest, AnInterruptThatStopsAllIsAnsweredByReadyAlone) {
    running();
    prompts({3});
    send(1, Command::INTERRUPT, "all");
    EXPECT_EQ(happened(), (Events{"SIGINT 0", "SIGINT 1", "SIGINT 2"}));
    prints({0, 1, 2}, "Program received signal SIGINT, Interrupt.\n");
    prompts({0, 1, 2});
    EXPECT_EQ(happened(),
              (Events{"1 0@0:2 Program received signal SIGINT, Interrupt.", "1 READY 1"}));
    pass(5s);
    EXPECT_EQ(happened(), Events());
}

TEST_F(SwitchboardTest, AnInterruptThatDoesNotIsAnsweredAfterASecond) {
    running();
    send(1, Command::INTERRUPT, "all");
    happened();
    pass(999ms);
    EXPECT_EQ(happened(), Events());
    pass(1ms);
    EXPECT_EQ(happened(), Events{"1 SUCCESS"});
    prints({0, 1, 2, 3}, "received signal SIGINT\n");
    prompts({0, 1, 2, 3});
    EXPECT_EQ(happened(), (Events{"1 0@0:3 received signal SIGINT", "1 READY 1"}));
}

TEST_F(SwitchboardTest, ASecondInterruptDoesNotReachTheNextCommand) {
    running("0");
    send(1, Command::INTERRUPT, "0");
    pass(499ms);
    send(1, Command::INTERRUPT, "0");
    EXPECT_EQ(happened(), Events{"SIGINT 0"});
    pass(1ms);
    send(1, Command::INTERRUPT, "0");
    EXPECT_EQ(happened(), Events{"SIGINT 0"});
    // One stopped the program; the prompt of the other is waited for.
    prints({0}, "received signal SIGINT\n");
    prompts({0});
    EXPECT_EQ(happened(), Events());
    prints({0}, "Quit\n");
    prompts({0});
    EXPECT_EQ(happened(), (Events{"1 0@0 received signal SIGINT", "1 READY 1"}));
    filtered(1);
    // The next command can be interrupted at once.
    running("0");
    send(1, Command::INTERRUPT, "0");
    EXPECT_EQ(happened(), Events{"SIGINT 0"});
    // Two whose prompts are both late.
    pass(500ms);
    send(1, Command::INTERRUPT, "0");
    prompts({0});
    prompts({0});
    EXPECT_EQ(happened(), Events{"SIGINT 0"});
    prompts({0});
    EXPECT_EQ(happened(), Events{"1 READY 1"});
}

TEST_F(SwitchboardTest, EachOpenInterruptIsAnswered) {
    running();
    send(1, Command::INTERRUPT, "0");
    pass(300ms);
    send(1, Command::INTERRUPT, "1");
    happened();
    pass(700ms);
    EXPECT_EQ(happened(), Events{"1 SUCCESS"});
    pass(300ms);
    EXPECT_EQ(happened(), Events{"1 SUCCESS"});
    pass(200ms);
    // READY is the answer to both, so both parts must have stopped.
    send(1, Command::INTERRUPT, "0");
    send(1, Command::INTERRUPT, "1");
    prints({0, 1}, "received signal SIGINT\nreceived signal SIGINT\n");
    prompts({1});
    pass(200ms);
    happened();
    prompts({0});
    EXPECT_EQ(happened(), Events{"1 READY 1"});
    pass(2s);
    EXPECT_EQ(happened(), Events());
}

TEST_F(SwitchboardTest, AnInterruptOfAPartFreesTheConsoleWhenThatPartHasStopped) {
    group(1, GroupCommand::ASSIGN, "odd", {1, 3});
    running();
    send(1, Command::ON, "all", "odd");
    EXPECT_EQ(happened(), Events{"1 ON_INTERRUPT odd"});
    send(1, Command::INTERRUPT, "odd");
    prints({1, 3}, "received signal SIGINT\n");
    happened();
    prompts({1, 3});
    EXPECT_EQ(happened(), (Events{"1 0@1 3 received signal SIGINT", "1 READY 1"}));
    filtered(1);
    send(1, Command::CLIENT, "odd", "where");
    happened();
    // The rest of the first command ends unheard: its READY would end the second one's wait.
    prompts({0, 2});
    EXPECT_EQ(happened(), Events());
    prompts({1, 3});
    EXPECT_EQ(happened(), Events{"1 READY 1"});
}

TEST_F(SwitchboardTest, AnInterruptWithNothingInFlight) {
    send(1, Command::INTERRUPT, "all");
    EXPECT_EQ(happened(), Events{"1 ON_NORMAL all"});
    // It crossed a READY: nothing may pass for the answer to FILTERED.
    running("0");
    prompts({0});
    send(1, Command::INTERRUPT, "0");
    EXPECT_EQ(happened(), Events{"1 READY 1"});
    filtered(1);
    EXPECT_EQ(happened(), Events{"1 SUCCESS"});
}

TEST_F(SwitchboardTest, ALateInterruptsPromptIsNotTheNextCommands) {
    running("0");
    send(1, Command::INTERRUPT, "0");
    happened();
    // The command has just ended by itself.
    prints({0}, "[Inferior 1 exited normally]\n");
    prompts({0});
    EXPECT_EQ(happened(), Events());
    prints({0}, "Quit\n");
    prompts({0});
    EXPECT_EQ(happened(), (Events{"1 0@0 [Inferior 1 exited normally]", "1 READY 1"}));
    filtered(1);
    // And when no second prompt comes, nobody waits for it for long.
    running("0");
    send(1, Command::INTERRUPT, "0");
    prompts({0});
    happened();
    pass(1s);
    EXPECT_EQ(happened(), Events{"1 READY 1"});
}

TEST_F(SwitchboardTest, AnInterruptThatComesTooEarlyIsRepeated) {
    running("0");
    send(1, Command::INTERRUPT, "0");
    happened();
    // The debugger drops the interrupt, and then takes up the command.
    prints({0}, "Quit\n");
    prompts({0});
    prints({0}, "Continuing.\n");
    EXPECT_EQ(happened(), Events{"SIGINT 0"});
    prints({0}, "Program received signal SIGINT, Interrupt.\n");
    prompts({0});
    EXPECT_EQ(happened(),
              (Events{"1 0@0 Quit", "1 1@0 Continuing.",
                      "1 2@0 Program received signal SIGINT, Interrupt.", "1 READY 1"}));
}

TEST_F(SwitchboardTest, SendAnswersThoseWhoAsk) {
    running();
    prints({0, 1}, "End with \"end\".\n>");
    pass(200ms);
    const std::string waits = "1 2@0:1 waits for an answer to '>'; give it by: send ...";
    EXPECT_EQ(happened(),
              (Events{"1 0@0:1 End with \"end\".", "1 1@0:1 >", waits, "1 ON_INTERRUPT all"}));
    // Those who ask have been named; the others have not answered.
    pass(5s);
    EXPECT_EQ(happened(), Events{"1 0@2:3 No answer yet from 2:3"});
    send(1, Command::PROMPT, "all", "'print 1'");
    EXPECT_EQ(happened(), (Events{"type 0 print 1", "type 1 print 1"}));
    prints({0}, " >");
    pass(200ms);
    EXPECT_EQ(happened(),
              (Events{"1 2@0  >", "1 3@0 waits for an answer to ' >'; give it by: send ...",
                      "1 ON_INTERRUPT all"}));
    send(1, Command::PROMPT, "all", "end");
    EXPECT_EQ(happened(), Events{"type 0 end"});
    send(1, Command::PROMPT, "all", "end");
    EXPECT_EQ(happened(),
              (Events{"1 0@0:3 waits for no answer; nothing was sent", "1 ON_INTERRUPT all"}));
    prompts({0, 1, 2, 3});
    EXPECT_EQ(happened(), Events{"1 READY 1"});
    send(1, Command::PROMPT, "all", "y"); // crosses READY
    EXPECT_EQ(happened(), Events());
    filtered(1);
    send(1, Command::PROMPT, "all", "y");
    EXPECT_EQ(happened(), (Events{"1 SUCCESS", "1 FAILED 502"}));
}

TEST_F(SwitchboardTest, OnTellsWhetherACommandStillRunsThere) {
    running("2");
    send(1, Command::ON, "2", "0");
    EXPECT_EQ(happened(), Events{"1 ON_NORMAL 0"});
    send(1, Command::ON, "0", "all");
    EXPECT_EQ(happened(), Events{"1 ON_INTERRUPT all"});
    // Another console's command is not this console's.
    send(2, Command::ON, "all", "2");
    EXPECT_EQ(happened(), Events{"2 ON_NORMAL 2"});
    send(1, Command::ON, "all", "3");
    happened();
    prompts({2});
    EXPECT_EQ(happened(), Events{"1 READY 1"});
}

TEST_F(SwitchboardTest, ACommandWithoutItsConsoleGoesToTheFirstThatLooksAfterIt) {
    running("2");
    board.consoleLeft(1);
    send(2, Command::CLIENT, "2", "where");
    EXPECT_EQ(happened(), Events{"2 FAILED 519"});
    send(2, Command::ON, "all", "2");
    EXPECT_EQ(happened(), Events{"2 ON_INTERRUPT 2"});
    send(2, Command::INTERRUPT, "2");
    prints({2}, "received signal SIGINT\n");
    prompts({2});
    EXPECT_EQ(happened(), (Events{"SIGINT 2", "2 0@2 received signal SIGINT", "2 READY 2"}));
}

TEST_F(SwitchboardTest, ADyingClientIsAnnouncedAfterItsLastWords) {
    running();
    prompts({0, 1});
    prints({2}, "last words");
    board.clientGone(2, now);
    EXPECT_EQ(happened(), (Events{"1 0@2 last words", "1 REMOVE 2", "2 REMOVE 2"}));
    board.clientGone(3, now);
    EXPECT_EQ(happened(), (Events{"1 REMOVE 3", "2 REMOVE 3", "1 READY 1"}));
    filtered(1);
    happened();
    running();
    board.clientGone(0, now);
    happened();
    board.clientGone(1, now);
    EXPECT_EQ(happened(),
              (Events{"1 REMOVE 1", "2 REMOVE 1", "1 FAILED 803", "2 FAILED 803", "over"}));
}

TEST_F(SwitchboardTest, AForkedClientIsAnnouncedAndBelongsToAll) {
    group(1, GroupCommand::ASSIGN, "g", {0, 1});
    running("g");
    board.clientForked(5, "who"); // 4 is still starting
    prints({5}, "hello\n");
    group(2, GroupCommand::QUERY, "");
    EXPECT_EQ(happened(), (Events{"1 CLIENT_ADD 5  who", "2 CLIENT_ADD 5  who",
                                  "2 QUERY all (5): 0:3 5\ng (2): 0:1\n"}));
    EXPECT_EQ(board.ownerOf(6), 0);
    send(2, Command::CLIENT, "5", "where");
    EXPECT_EQ(happened(), (Events{"1 0@5 hello", "type 5 where"}));
    prompts({5});
    board.clientGone(4, now); // it could not be attached to
    board.clientGone(5, now);
    EXPECT_EQ(happened(), (Events{"2 READY 2", "1 REMOVE 5", "2 REMOVE 5"}));
    board.tell(1, "a word");
    EXPECT_EQ(happened(), (Events{"1 0@1 a word", "2 0@1 a word"}));
}

TEST_F(SwitchboardTest, WhoseGroupIsGoneIsSentToAllWhenItWaitsForNothing) {
    group(1, GroupCommand::ASSIGN, "g", {2});
    send(1, Command::ON, "all", "g");
    send(2, Command::ON, "all", "g");
    running("g");
    // Console 2 has nothing open, console 1 waits for its command.
    board.clientGone(2, now);
    EXPECT_EQ(happened(), (Events{"1 REMOVE 2", "2 REMOVE 2", "1 READY 1", "2 QUIT 0"}));
    filtered(1);
    EXPECT_EQ(happened(), Events{"1 SUCCESS NULL"});

    group(1, GroupCommand::ASSIGN, "h", {0});
    send(1, Command::ON, "all", "h");
    send(2, Command::ON, "all", "h");
    happened();
    group(1, GroupCommand::DELETE, "h", {0});
    EXPECT_EQ(happened(), (Events{"1 SUCCESS NULL", "2 QUIT 0"}));
    group(1, GroupCommand::ASSIGN, "k", {0});
    group(1, GroupCommand::DELETE, "k", {0});
    EXPECT_EQ(happened(), (Events{"1 SUCCESS", "1 FAILED 600 k"}));
}

TEST_F(SwitchboardTest, AnInterruptForAGroupThatIsGoneMovesItsConsoleOnce) {
    group(1, GroupCommand::ASSIGN, "g", {2});
    running();
    send(1, Command::ON, "all", "g");
    board.clientGone(2, now);
    happened();
    send(1, Command::INTERRUPT, "g");
    EXPECT_EQ(happened(), Events{"1 SUCCESS NULL"});
    prompts({0, 1, 3});
    filtered(1);
    EXPECT_EQ(happened(), (Events{"1 READY 1", "1 SUCCESS"}));
}

TEST_F(SwitchboardTest, APipeGetsEachClientsOutputWhole) {
    send(1, Command::CLIENT, "0", "where | grep main");
    EXPECT_EQ(happened(), Events{"type 0 where"});
    prints({0}, "#0 f\n#1 ma");
    pass(300ms); // the time cuts no line that goes to a program
    prints({0}, "in\n");
    EXPECT_EQ(happened(), Events());
    prompts({0});
    EXPECT_EQ(happened(), Events{"start 0 grep main < #0 f\n#1 main\n"});
    send(2, Command::CLIENT, "0", "print 1");
    EXPECT_EQ(happened(), Events{"2 FAILED 519"});
    board.helperOutput(0, "#1 main\nvex_cmd kill\nhalf", now);
    board.helperEnded(0, "ended with status 1", now);
    EXPECT_EQ(happened(),
              (Events{"1 0@0 #1 main", "1 1@0 vex_cmd kill", "1 2@0 half", "1 READY 1"}));
    filtered(1);
    happened();
    send(1, Command::CLIENT, "0", ":print 1 | grep 2");
    EXPECT_EQ(happened(), Events{"type 0 print 1 | grep 2"});
    prompts({0});
    filtered(1);
    happened();
    send(1, Command::CLIENT, "0", "pipe where | grep 2");
    EXPECT_EQ(happened(), Events{"type 0 pipe where | grep 2"});
}

TEST_F(SwitchboardTest, AScriptsCommandsAreAnsweredInTheirPlace) {
    send(1, Command::SCRIPTCLIENT, "0", "script ./it x");
    EXPECT_EQ(happened(), Events{"start 0 exec ./it x < "});
    board.helperOutput(0, "hello\nvex_cmd print 1\nvex_cmdx\nvex_cmd\nvex_cmd  where\nend", now);
    EXPECT_EQ(happened(), Events{"type 0 print 1"});
    prints({0}, "$1 = 1\n");
    board.helperEnded(0, "ended with status 3", now);
    EXPECT_EQ(happened(), Events());
    prompts({0});
    EXPECT_EQ(happened(), Events{"type 0 where"});
    prints({0}, "#0 main\n");
    prompts({0});
    EXPECT_EQ(happened(), (Events{"1 0@0 hello", "1 1@0 $1 = 1", "1 2@0 vex_cmdx", "1 3@0 vex_cmd",
                                  "1 4@0 #0 main", "1 5@0 end",
                                  "1 6@0 the script ended with status 3", "1 READY 1"}));
}

TEST_F(SwitchboardTest, WhatWorksForAClientEndsWithTheInterruptTheClientAndTheConsole) {
    send(1, Command::SCRIPTCLIENT, "all", "script ./it");
    happened();
    board.helperOutput(1, "vex_cmd continue\nvex_cmd never\n", now);
    board.clientGone(2, now);
    EXPECT_EQ(happened(), (Events{"type 1 continue", "stop 2", "1 REMOVE 2", "2 REMOVE 2"}));
    send(1, Command::INTERRUPT, "all");
    EXPECT_EQ(happened(), (Events{"stop 0", "SIGINT 1", "stop 1", "stop 3"}));
    prints({1}, "received signal SIGINT\n");
    prompts({1});
    EXPECT_EQ(happened(), (Events{"1 0@1 received signal SIGINT", "1 READY 1"}));
    filtered(1);
    happened();
    send(1, Command::SCRIPTCLIENT, "0", "script ./it");
    board.consoleLeft(1);
    EXPECT_EQ(happened(), (Events{"start 0 exec ./it < ", "stop 0"}));
    send(2, Command::CLIENT, "0", "print 1");
    EXPECT_EQ(happened(), Events{"type 0 print 1"});
}

TEST_F(SwitchboardTest, StatIsOneReportOfAll) {
    const std::string command = gdb.backtraceCommand(500);
    send(1, Command::STATCLIENT, "all", "stat");
    EXPECT_EQ(happened()[3], "type 3 " + command);
    prints({0, 1}, "\nThread 1 (LWP 1):\n#0  poll () at p.c:1\n#1  0x1 in main () at m.c:2\n");
    prints({2}, "\nThread 1 (LWP 1):\n#0  main () at m.c:1\n");
    prompts({0, 2, 3});
    EXPECT_EQ(happened(), Events());
    prompts({1});
    EXPECT_EQ(
        happened(),
        (Events{"1 0@2 1 client in main", "1 0@0:1 2 clients in poll, called by main",
                "1 1@3 no stack: no process", "1 2@0:2 main", "1 3@0:1   poll", "1 READY 1"}));
    filtered(1);
    happened();
    send(1, Command::STATCLIENT, "2", "stat -s -i | grep x");
    prints({2}, "\nThread 1 (LWP 1):\n#0  main () at m.c:1\n");
    prompts({2});
    EXPECT_EQ(happened(),
              (Events{"type 2 " + command, "start 2 grep x < 2 | 1 client in main at m.c:1\n"}));
    // A line that comes back keeps its clients, another is about all.
    board.helperOutput(2, "2 | 1 client in main at m.c:1\n1 line\n", now);
    board.helperEnded(2, "", now);
    EXPECT_EQ(happened(), (Events{"1 0@2 1 client in main at m.c:1", "1 1@2 1 line", "1 READY 1"}));
}

TEST_F(SwitchboardTest, PendingHoldsWhomTheConsoleWaitsFor) {
    running();
    prompts({0, 1});
    group(1, GroupCommand::QUERY, "PENDING");
    group(2, GroupCommand::QUERY, "PENDING");
    group(1, GroupCommand::ASSIGN, "PENDING", {0});
    EXPECT_EQ(happened(), (Events{"1 QUERY PENDING (2): 2:3\n", "2 FAILED 511", "1 FAILED 513"}));
    send(1, Command::ON, "all", "PENDING");
    send(1, Command::INTERRUPT, "PENDING");
    prints({2, 3}, "received signal SIGINT\n");
    happened();
    prompts({2, 3});
    filtered(1);
    // Who stands there can go on with them.
    EXPECT_EQ(happened(), (Events{"1 0@2:3 received signal SIGINT", "1 READY 1", "1 SUCCESS"}));
    send(1, Command::CLIENT, "PENDING", "where");
    EXPECT_EQ(happened(), (Events{"type 2 where", "type 3 where"}));
    prompts({2, 3});
    filtered(1);
    send(1, Command::ON, "PENDING", "all");
    happened();
    send(1, Command::ON, "all", "PENDING");
    EXPECT_EQ(happened(), Events{"1 FAILED 511"});
}

TEST_F(SwitchboardTest, TellsOnceWhoHasNotAnswered) {
    running();
    prompts({0, 2});
    pass(4999ms);
    EXPECT_EQ(happened(), Events());
    pass(10s);
    EXPECT_EQ(happened(), Events{"1 0@1 3 No answer yet from 1 3"});
}

TEST_F(SwitchboardTest, WhoIsAskedAtAnyTime) {
    running("1");
    send(2, Command::CLIENT, "all", "vex who");
    EXPECT_EQ(happened(), (Events{"2 0@0 task of 0", "2 1@1 task of 1", "2 2@2 task of 2",
                                  "2 3@3 task of 3", "2 READY 2"}));
}

TEST_F(SwitchboardTest, StrayPromptsAndOutputOfIdleClients) {
    prompts({0, 1});
    EXPECT_EQ(happened(), Events());
    running("0");
    prompts({0});
    filtered(1);
    happened();
    // A program that was let go speaks: the console that let it go hears it.
    prints({0}, "from afar\n");
    pass(200ms);
    EXPECT_EQ(happened(), Events{"1 0@0 from afar"});
    // What came in before the next command is no part of its answer.
    prints({0}, "early\n");
    running("0");
    prints({0}, "answer\n");
    prompts({0});
    EXPECT_EQ(happened(), (Events{"1 0@0 answer", "1 READY 1"}));
}

TEST_F(SwitchboardTest, ALineIsOneLine) {
    send(1, Command::CLIENT, "0", "print 1\nquit");
    EXPECT_EQ(happened(), Events{"type 0 print 1"});
}

TEST_F(SwitchboardTest, RefusesRecordsThatNoConsoleSends) {
    Command command;
    command.init(2, "all", Command::CLIENT, "where", -1);
    EXPECT_THROW(board.command(1, command, now), BrokenConnection);
    EXPECT_THROW(send(1, Command::CONFIG, "all", "x"), BrokenConnection);
    EXPECT_THROW(send(1, static_cast<Command::Type>(77), "all", "x"), BrokenConnection);
    EXPECT_THROW(send(1, Command::GROUP, "all", "no group command"), BrokenConnection);
    send(1, Command::QUIT, "all");
    EXPECT_EQ(happened(), Events{"over"});
}

} // namespace

#include "tests/frontend/switchboard/switchboardtest.h"

namespace {

TEST_F(SwitchboardTest, ACommandGoesToTheGroupAndItsAnswersComeBackMerged) {
    group(1, ASSIGN, "odd", {1, 3});
    for (int round = 0; round < 2; ++round) { // line numbers begin anew
        EXPECT_EQ(types(1, "odd", "print 1"), "type 1 print 1 / type 3 print 1");
        prints({1, 3}, "$1 = 1\n");
        prints({3}, "and more");
        EXPECT_EQ(prompts({1}), "");
        EXPECT_EQ(prompts({3}), "1 0@1 3 $1 = 1 / 1 1@3 and more / 1 READY 1");
        EXPECT_EQ(filtered(), "1 SUCCESS");
    }
    EXPECT_TRUE(send(1, INSTANT, "all", "inst  info line").starts_with("type 0 info line / "));
    prints({0, 1}, "x\n");
    EXPECT_EQ(happened(), "1 0@0 x / 1 0@1 x");
    EXPECT_EQ(prompts({0, 1, 2, 3}), "1 READY 1");
}

TEST_F(SwitchboardTest, NeitherASlowClientNorAnUnfinishedLineHoldsBackTheOthers) {
    running();
    EXPECT_EQ(answers({0, 1, 2}, "ready\n"), "");
    wake.reset();
    board.tick(now); // before its time, and told again
    EXPECT_EQ(pass(199ms), "");
    EXPECT_EQ(pass(1ms), "1 0@0:2 ready");
    EXPECT_EQ(answers({3}, "late\nready\n"), "1 1@3 late / 1 2@3 ready / 1 READY 1");
    filtered();
    running();
    prints({0}, "a\nhalf");
    EXPECT_EQ(pass(100ms), "");
    prints({1}, "younger");
    EXPECT_EQ(pass(100ms), "1 0@0 a");
    EXPECT_EQ(pass(300ms), "1 1@0 half");
    prints({0}, " more\n");
    EXPECT_EQ(pass(200ms), "1 1@0  more / 1 2@1 younger");
    EXPECT_GT(wake, now + 4s);
}

TEST_F(SwitchboardTest, TasksThatComeOneAfterTheOtherToABreakpointAreOneLine) {
    running();
    for (int id = 0; id < 3; ++id) {
        EXPECT_EQ(answers({id}, id == 1 ? "a notice\nhit\n" : "hit\n"), "");
        EXPECT_EQ(pass(150ms), "");
    }
    EXPECT_EQ(answers({3}, "hit\n"), "1 0@1 a notice / 1 1@0:3 hit / 1 READY 1");
    filtered();
    // What a client says behind its answer stands behind all that its console has been told.
    prints({0}, "later\n");
    EXPECT_EQ(pass(200ms), "1 2@0 later");
    running();
    prints({0, 1, 2, 3}, "step 1\n");
    EXPECT_EQ(pass(20ms), "1 0@0:3 step 1"); // nobody else is waited for
    prints({3}, "step 2\n");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(pass(150ms), "");
        prints({i}, i == 0 ? "odd\nstep 2\n" : "step 2\n");
    }
    EXPECT_EQ(pass(20ms), "1 1@0 odd / 1 2@0:3 step 2");
}

TEST_F(SwitchboardTest, MuchThatAllSayIsShownOnceAndDoesNotWaitForTheSlow) {
    running();
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += "equal\n"; // 1.5 MB when gathered
    const auto lines = [](const std::string& events) {
        return std::count(events.begin(), events.end(), '@');
    };
    std::string all;
    for (int id = 0; id < 4; ++id) {
        prints({id}, text);
        EXPECT_EQ(all, "");
        all = pass(20ms);
    }
    EXPECT_EQ(lines(all), 20000);
    EXPECT_TRUE(all.ends_with(" / 1 19999@0:3 equal"));
    prints({0, 1, 2}, text);
    EXPECT_EQ(lines(pass(200ms)), 20000);
    // All that is kept back is 16 MB.
    for (int i = 0; i < 17 * 1024; ++i)
        prints({0}, std::to_string(i) + std::string(1024, '.') + "\n");
    EXPECT_GT(lines(happened()), 12000);
}

TEST_F(SwitchboardTest, RefusesWhatCannotStartAndWhatNoConsoleSends) {
    EXPECT_EQ(types(1, "nosuch", "where"), "1 FAILED 511");
    EXPECT_EQ(on(1, "nosuch"), "1 FAILED 511");
    running("2");
    EXPECT_EQ(types(2, "all", "where"), "2 FAILED 519");
    EXPECT_EQ(types(2, "3", "where\nquit"), "type 3 where"); // a line is one line
    EXPECT_EQ(types(1, "2", "where"), "1 FAILED 519");
    EXPECT_EQ(types(2, "2", "vex who"), "2 0@2 task of 2 / 2 READY 2");
    EXPECT_EQ(types(2, "2", "vex waits"), "2 0@2 all wait / 2 READY 2");
    EXPECT_EQ(send(1, STATCLIENT, "0", "stat -s | nosuch"),
              "1 0@0 cannot find the program 'nosuch' / 1 FAILED");
    EXPECT_EQ(send(1, SCRIPTCLIENT, "0", "script it"),
              "1 0@0 cannot run 'it': a program of this directory needs its path, ./it / 1 FAILED");
    Command foreign;
    foreign.init(2, "all", CLIENT, "where", -1);
    EXPECT_THROW(board.command(1, foreign, now), BrokenConnection);
    for (const int type : {int{CONFIG}, int{GROUP}, 77})
        EXPECT_THROW(send(1, static_cast<Command::Type>(type), "all", "x"), BrokenConnection);
    EXPECT_EQ(send(1, QUIT, "all", "", 0), "over");
}

TEST_F(SwitchboardTest, AnInterruptIsAnsweredByReadyAloneOrAfterASecond) {
    running();
    prompts({3});
    EXPECT_EQ(interrupts("all"), "SIGINT 0 / SIGINT 1 / SIGINT 2");
    EXPECT_EQ(stops({0, 1, 2}), "1 0@0:2 received signal SIGINT / 1 READY 1");
    EXPECT_EQ(pass(5s), "");
    filtered();
    running();
    interrupts("all");
    EXPECT_EQ(pass(999ms), "");
    EXPECT_EQ(pass(1ms), "1 SUCCESS");
    EXPECT_EQ(stops({0, 1, 2, 3}), "1 0@0:3 received signal SIGINT / 1 READY 1");
}

TEST_F(SwitchboardTest, ASecondInterruptDoesNotReachTheNextCommand) {
    running("0");
    EXPECT_EQ(interrupts("0"), "SIGINT 0");
    pass(499ms);
    EXPECT_EQ(interrupts("0"), "");
    pass(1ms);
    EXPECT_EQ(interrupts("0"), "SIGINT 0");
    // One stopped the program; the prompt of the other is waited for.
    EXPECT_EQ(stops({0}), "");
    EXPECT_EQ(answers({0}, "Quit\n"), "1 0@0 received signal SIGINT / 1 READY 1");
    filtered();
    // The next command can be interrupted at once.
    running("0");
    EXPECT_EQ(interrupts("0"), "SIGINT 0");
    // Two whose prompts are both late.
    pass(500ms);
    EXPECT_EQ(interrupts("0"), "SIGINT 0");
    EXPECT_EQ(prompts({0}), "");
    EXPECT_EQ(prompts({0}), "");
    EXPECT_EQ(prompts({0}), "1 READY 1");
}

TEST_F(SwitchboardTest, EachOpenInterruptIsAnswered) {
    running();
    interrupts("0");
    pass(300ms);
    interrupts("1");
    EXPECT_EQ(pass(700ms), "1 SUCCESS");
    EXPECT_EQ(pass(300ms), "1 SUCCESS");
    pass(200ms);
    // READY is the answer to both, so both parts must have stopped.
    interrupts("0");
    interrupts("1");
    prints({0, 1}, "received signal SIGINT\nreceived signal SIGINT\n");
    prompts({1});
    pass(200ms);
    EXPECT_EQ(prompts({0}), "1 READY 1");
    EXPECT_EQ(pass(2s), "");
    filtered();
    // READY is no answer to one that was answered by its time.
    interrupts("2");
    EXPECT_EQ(pass(1s), "1 SUCCESS");
    interrupts("3");
    EXPECT_EQ(stops({3}), "1 0@3 received signal SIGINT / 1 READY 1");
}

TEST_F(SwitchboardTest, AnInterruptOfAPartFreesTheConsoleWhenThatPartHasStopped) {
    group(1, ASSIGN, "odd", {1, 3});
    running();
    EXPECT_EQ(on(1, "odd"), "1 ON_INTERRUPT odd");
    interrupts("odd");
    EXPECT_EQ(stops({1, 3}), "1 0@1 3 received signal SIGINT / 1 READY 1");
    filtered();
    running("odd");
    // The rest of the first command ends unheard: its READY would end the second one's wait.
    EXPECT_EQ(prompts({0, 2}), "");
    EXPECT_EQ(prompts({1, 3}), "1 READY 1");
}

TEST_F(SwitchboardTest, InterruptsThatComeTooLateOrTooEarly) {
    EXPECT_EQ(interrupts("all"), "1 ON_NORMAL all");
    // It crossed a READY: nothing may pass for the answer to FILTERED.
    running("0");
    EXPECT_EQ(prompts({0}), "1 READY 1");
    EXPECT_EQ(interrupts("0"), "");
    EXPECT_EQ(filtered(), "1 SUCCESS");
    // The command has just ended by itself: the interrupt's own prompt is not the next command's.
    running("0");
    interrupts("0");
    EXPECT_EQ(answers({0}, "exited\n"), "");
    EXPECT_EQ(answers({0}, "Quit\n"), "1 0@0 exited / 1 READY 1");
    filtered();
    // And when no second prompt comes, nobody waits for it for long.
    pass(1s);
    running("0");
    interrupts("0");
    prompts({0});
    EXPECT_EQ(pass(150ms), "1 READY 1");
    filtered();
    // The debugger drops the interrupt, and then takes up the command: it is repeated.
    running("0");
    interrupts("0");
    answers({0}, "Quit\n");
    prints({0}, "Continuing.\n");
    EXPECT_EQ(happened(), "SIGINT 0");
    EXPECT_EQ(stops({0}),
              "1 0@0 Quit / 1 1@0 Continuing. / 1 2@0 received signal SIGINT / 1 READY 1");
}

TEST_F(SwitchboardTest, SendAnswersThoseWhoAsk) {
    running();
    prints({0, 1}, "End with \"end\".\n>");
    const std::string asks = "waits for an answer to '>'; give it by: send ...; easier: interrupt, "
                             "then source FILE with these lines";
    EXPECT_EQ(pass(200ms),
              "1 0@0:1 End with \"end\". / 1 1@0:1 > / 1 2@0:1 " + asks + " / 1 ON_INTERRUPT all");
    // Those who ask have been named; the others have not answered.
    EXPECT_EQ(pass(5s), "1 3@2:3 No answer yet from 2:3");
    EXPECT_EQ(replies("'print 1'"), "type 0 print 1 / type 1 print 1");
    prints({0}, ">");
    EXPECT_EQ(pass(200ms), "1 4@0 > / 1 5@0 " + asks + " / 1 ON_INTERRUPT all");
    EXPECT_EQ(replies("end"), "type 0 end");
    EXPECT_EQ(replies("end"), "1 0@0:3 waits for no answer; nothing was sent / 1 ON_INTERRUPT all");
    EXPECT_EQ(prompts({0, 1, 2, 3}), "1 READY 1");
    EXPECT_EQ(replies("y"), ""); // crosses READY
    filtered();
    EXPECT_EQ(replies("y"), "1 FAILED 502");
}

TEST_F(SwitchboardTest, ADebuggersHalfLineWaitsWhileItGrowsAndAsksWhenItDoesNot) {
    types(1, "0", "print table");
    for (const char* piece : {"{1, ", "\x1b[1m2, "}) {
        prints({0}, piece);
        EXPECT_EQ(pass(1999ms), "");
    }
    EXPECT_EQ(answers({0}, "4}\n"), "1 0@0 {1, ^[[1m2, 4} / 1 READY 1");
    filtered();
    types(1, "0", "print table");
    prints({0}, "one\ntwo\rlogin: ");
    EXPECT_EQ(pass(1999ms), "1 0@0 one");
    EXPECT_EQ(pass(201ms), "1 1@0 login:  / 1 2@0 waits for an answer to 'login:'; give it by: "
                           "send ... / 1 ON_INTERRUPT all");
    EXPECT_EQ(replies("me"), "type 0 me");
    prints({0}, "slow");
    EXPECT_TRUE(pass(3s).starts_with("1 3@0 slow / 1 4@0 waits for an answer to 'slow'"));
    // It was only slow; a question is told all the same.
    prints({0}, " but there\nreally? (y or n) ");
    EXPECT_EQ(pass(200ms), "1 3@0  but there / 1 5@0 really? (y or n)  / 1 6@0 waits for an answer "
                           "to 'really? (y or n)'; give it by: send ... / 1 ON_INTERRUPT all");
    prompts({0});
    filtered();
    // The program's is shown soon, and nobody waits for an answer; the debugger tells whose it is.
    types(1, "0", "mine");
    board.runs(0, true);
    prints({0}, "half");
    EXPECT_EQ(pass(500ms), "1 0@0 half");
    EXPECT_EQ(pass(2s), "");
    board.runs(0, false);
    prints({0}, " a line");
    EXPECT_EQ(pass(1999ms), "");
    EXPECT_EQ(prompts({0}), "1 0@0  a line / 1 READY 1");
    filtered();
    // But the debugger may tell where the task has stopped before it tells that it has.
    for (const char* begin : {"Breakpoint 1, ", "0x4 in f (", "main (argc=1, argv=0x"}) {
        types(1, "0", "continue");
        board.runs(0, true);
        prints({0}, begin);
        EXPECT_EQ(pass(1999ms), "");
        prompts({0});
        filtered();
    }
    // What is printed over a half line does not continue it.
    types(1, "0", "mine");
    board.runs(0, true);
    prints({0}, "50%\r");
    EXPECT_EQ(pass(500ms), "1 0@0 50%");
    prints({0}, "60%\r\n");
    EXPECT_EQ(pass(200ms), "1 1@0 60%");
}

TEST_F(SwitchboardTest, ConsolesGetNoControlBytesButProgramsDo) {
    const std::string raw("10%\r20%\a\0\r\n", 11);
    types(1, "0", "print it | grep x");
    EXPECT_EQ(answers({0}, raw), "start 0 grep x < " + raw.substr(0, 9) + "\n");
    board.userProgramOutput(0, "\x9b|\n", now);
    board.userProgramEnded(0, "", now);
    EXPECT_EQ(happened(), "1 0@0 M-^[| / 1 READY 1");
    filtered();
    types(1, "0", "shell it");
    EXPECT_EQ(answers({0}, raw), "1 0@0 20%^G^@ / 1 READY 1");
    board.announce("\033c");
    EXPECT_TRUE(happened().ends_with("^[c"));
}

TEST_F(SwitchboardTest, ItIsFreeAgainWhenItsGroupHasAnswered) {
    running();
    prints({0}, "(y or n) ");
    prompts({2, 3});
    pass(200ms);
    EXPECT_EQ(on(1, "0"), "1 ON_INTERRUPT 0");
    EXPECT_EQ(replies("y", "0"), "type 0 y");
    EXPECT_EQ(prompts({0}), "1 READY 1");
    filtered();
    types(1, "0", "where");
    // Who asks elsewhere is named, and does not interrupt.
    prints({1}, "(y or n) ");
    EXPECT_TRUE(pass(200ms).ends_with("'(y or n)'; give it by: send ..."));
    EXPECT_EQ(prompts({0}), "1 READY 1");
    filtered();
    // Its answer is waited for again, and then missed.
    EXPECT_EQ(on(1, "PENDING"), "1 ON_INTERRUPT PENDING");
    EXPECT_EQ(replies("y", "1"), "type 1 y");
    EXPECT_TRUE(pass(5s).ends_with("No answer yet from 1"));
    EXPECT_EQ(prompts({1}), "1 READY 1");
}

TEST_F(SwitchboardTest, OnTellsWhetherACommandStillRunsThere) {
    running("2");
    EXPECT_EQ(on(1, "0"), "1 ON_NORMAL 0");
    EXPECT_EQ(on(1, "all"), "1 ON_INTERRUPT all");
    EXPECT_EQ(on(2, "2"), "2 ON_NORMAL 2"); // another console's is not its own
    on(1, "3");
    EXPECT_EQ(prompts({2}), "1 READY 1");
    filtered();
    // Of two, that of the one left behind would pass for the other's.
    running("2");
    on(1, "3");
    running("3");
    EXPECT_EQ(prompts({3}), "1 READY 1");
    EXPECT_EQ(prompts({2}), "");
    filtered();
    // A command without its console goes to the first that looks after it.
    running("2");
    board.consoleLeft(1);
    EXPECT_EQ(types(2, "2", "where"), "2 FAILED 519");
    EXPECT_EQ(on(2, "2"), "2 ON_INTERRUPT 2");
    EXPECT_EQ(interrupts("2", 2), "SIGINT 2");
    EXPECT_EQ(stops({2}), "2 0@2 received signal SIGINT / 2 READY 2");
    group(2, ASSIGN, "FILTERED");
    // It is then one of that console's two, of which the last says READY.
    board.consoleJoined(3);
    types(3, "2", "continue");
    board.consoleLeft(3);
    on(2, "2");
    types(2, "3", "where");
    EXPECT_EQ(on(2, "0"), "2 ON_NORMAL 0");
    EXPECT_EQ(prompts({2}), "");
    EXPECT_EQ(prompts({3}), "2 READY 2");
}

TEST_F(SwitchboardTest, ADyingClientIsAnnouncedAfterItsLastWords) {
    running();
    prompts({0, 1});
    prints({2}, "last words");
    EXPECT_EQ(dies(2), "1 0@2 last words / 1 REMOVE 2 / 2 REMOVE 2");
    EXPECT_EQ(dies(3), "1 REMOVE 3 / 2 REMOVE 3 / 1 READY 1");
    filtered();
    running();
    dies(0);
    EXPECT_EQ(dies(1), "1 REMOVE 1 / 2 REMOVE 1 / 1 FAILED 803 / 2 FAILED 803 / over");
}

TEST_F(SwitchboardTest, AForkedClientIsAnnouncedAndBelongsToAll) {
    group(1, ASSIGN, "g", {0, 1});
    running("g");
    board.clientForked(5, "who"); // 4 is still starting
    prints({5}, "hello\n");
    EXPECT_EQ(group(2, QUERY, ""),
              "1 CLIENT_ADD 5  who / 2 CLIENT_ADD 5  who / 2 QUERY all (5): 0:3 5\ng (2): 0:1\n");
    EXPECT_EQ(board.ownerOf(6), 0);
    EXPECT_EQ(types(2, "5", "where"), "1 0@5 hello / type 5 where");
    EXPECT_EQ(prompts({5}), "2 READY 2");
    EXPECT_EQ(dies(4), ""); // it could not be attached to
    EXPECT_EQ(dies(5), "1 REMOVE 5 / 2 REMOVE 5");
    board.tell({1}, "a word");
    EXPECT_EQ(happened(), "1 0@1 a word / 2 0@1 a word");
}

TEST_F(SwitchboardTest, WhoseGroupIsGoneIsSentToAllWhenItWaitsForNothing) {
    group(1, ASSIGN, "g", {2});
    on(1, "g");
    on(2, "g");
    running("g");
    // Console 2 has nothing open, console 1 waits for its command.
    EXPECT_EQ(dies(2), "1 REMOVE 2 / 2 REMOVE 2 / 1 READY 1 / 2 QUIT 0");
    EXPECT_EQ(filtered(), "1 SUCCESS NULL");

    group(1, ASSIGN, "h", {0});
    on(1, "h");
    on(2, "h");
    EXPECT_EQ(group(1, DELETE, "h", {0}), "1 SUCCESS NULL / 2 QUIT 0");
    group(1, ASSIGN, "k", {0});
    EXPECT_EQ(group(1, DELETE, "k", {0}), "1 FAILED 600 k");

    // An interrupt for a group that is gone moves its console once.
    group(1, ASSIGN, "g", {3});
    running();
    on(1, "g");
    dies(3);
    EXPECT_EQ(interrupts("g"), "1 SUCCESS NULL");
    EXPECT_EQ(prompts({0, 1}), "1 READY 1");
    EXPECT_EQ(filtered(), "1 SUCCESS");
}

TEST_F(SwitchboardTest, PendingHoldsWhomTheConsoleWaitsFor) {
    running();
    prompts({0, 1});
    EXPECT_EQ(pass(4999ms), "");
    EXPECT_EQ(pass(10s), "1 0@2:3 No answer yet from 2:3");
    EXPECT_EQ(group(1, QUERY, "PENDING"), "1 QUERY PENDING (2): 2:3\n");
    EXPECT_EQ(group(2, QUERY, "PENDING"), "2 FAILED 511");
    EXPECT_EQ(group(1, ASSIGN, "PENDING", {0}), "1 FAILED 513");
    on(1, "PENDING");
    interrupts("PENDING");
    EXPECT_EQ(stops({2, 3}), "1 1@2:3 received signal SIGINT / 1 READY 1");
    filtered();
    // Who stands there can go on with them.
    EXPECT_EQ(types(1, "PENDING", "where"), "type 2 where / type 3 where");
    prompts({2, 3});
    filtered();
    on(1, "all", "PENDING");
    EXPECT_EQ(on(1, "PENDING"), "1 FAILED 511");
    // The dead leave it, though it stays as it was for a console that stands there.
    running();
    on(1, "PENDING");
    prompts({1});
    dies(2);
    EXPECT_EQ(group(1, QUERY, "PENDING"), "1 QUERY PENDING (3): 0:1 3\n");
}

TEST_F(SwitchboardTest, StrayPromptsAndOutputOfIdleClients) {
    EXPECT_EQ(prompts({0, 1}), "");
    running("0");
    prompts({0});
    filtered();
    // A program that was let go speaks: the console that let it go hears it.
    prints({0}, "from afar\n");
    EXPECT_EQ(pass(200ms), "1 0@0 from afar");
    // What came in before the next command is no part of its answer.
    prints({0}, "early\nunfinished");
    running("0");
    EXPECT_EQ(answers({0}, "answer\n"), "1 0@0 answer / 1 READY 1");
}

} // namespace

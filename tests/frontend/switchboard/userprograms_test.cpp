#include "tests/frontend/switchboard/switchboardtest.h"

namespace {

TEST_F(SwitchboardTest, APipeGetsEachClientsOutputWhole) {
    EXPECT_EQ(types(1, "0", "where | grep main"), "type 0 where");
    prints({0}, "#0 f\n#1 ma");
    EXPECT_EQ(pass(300ms), ""); // the time cuts no line that goes to a program
    prints({0}, "in\n");
    EXPECT_EQ(prompts({0}), "start 0 grep main < #0 f\n#1 main\n");
    EXPECT_EQ(types(2, "0", "print 1"), "2 FAILED 519");
    pass(1s);
    board.userProgramOutput(0, "#1 main\nvex_cmd kill\nhalf", now);
    EXPECT_EQ(pass(200ms), "1 0@0 #1 main / 1 1@0 vex_cmd kill");
    board.userProgramEnded(0, "ended with status 1", now);
    EXPECT_EQ(happened(), "1 2@0 half / 1 READY 1");
    for (const std::string line : {"print 1 | grep 2", "pipe where | grep 2"}) {
        filtered();
        EXPECT_EQ(types(1, "0", (line[1] == 'r' ? ":" : "") + line), "type 0 " + line);
        prompts({0});
    }
    // Nor is the end lost of a line that is as long as the part that is held of one.
    filtered();
    types(1, "0", "where | grep main");
    prints({0}, std::string(LineCutter::maxLine, 'x') + "\r\nnext\r\n");
    EXPECT_TRUE(prompts({0}).ends_with("x\nnext\n"));
    board.userProgramEnded(0, "", now);
    // But not without a bound, 64 MB.
    filtered();
    types(1, "0", "where | grep main");
    for (int i = 0; i < 70; ++i)
        prints({0}, std::string(1 << 20, 'x') + "\n");
    const std::size_t size = prompts({0}).size();
    EXPECT_TRUE(size > 64 << 20 && size < 65 << 20) << size;
}

TEST_F(SwitchboardTest, AScriptsCommandsAreAnsweredInTheirPlace) {
    EXPECT_EQ(send(1, SCRIPTCLIENT, "0", "script ./it x"), "start 0 exec ./it x < ");
    board.userProgramOutput(0, "hello\nvex_cmd print 1\nvex_cmdx\nvex_cmd\nvex_cmd  where\nend",
                            now);
    EXPECT_EQ(happened(), "type 0 print 1");
    prints({0}, "$1 = 1\n");
    board.userProgramEnded(0, "ended with status 3", now);
    EXPECT_EQ(happened(), "");
    EXPECT_EQ(prompts({0}), "type 0 where");
    EXPECT_EQ(answers({0}, "#0 main\n"),
              "1 0@0 hello / 1 1@0 $1 = 1 / 1 2@0 vex_cmdx / 1 3@0 vex_cmd / 1 4@0 #0 main / 1 5@0 "
              "end / 1 6@0 the script ended with status 3 / 1 READY 1");
}

TEST_F(SwitchboardTest, WhatWorksForAClientEndsWithTheInterruptTheClientAndTheConsole) {
    send(1, SCRIPTCLIENT, "all", "script ./it");
    board.userProgramOutput(1, "vex_cmd continue\nvex_cmd never\n", now);
    EXPECT_EQ(dies(2), "type 1 continue / stop 2 / 1 REMOVE 2 / 2 REMOVE 2");
    EXPECT_EQ(interrupts("all"), "stop 0 / SIGINT 1 / stop 1 / stop 3");
    EXPECT_EQ(stops({1}), "1 0@1 received signal SIGINT / 1 READY 1");
    filtered();
    send(1, SCRIPTCLIENT, "0", "script ./it");
    board.consoleLeft(1);
    EXPECT_EQ(happened(), "stop 0");
    EXPECT_EQ(types(2, "0", "print 1"), "type 0 print 1");
}

TEST_F(SwitchboardTest, StatIsOneReportOfAll) {
    const std::string command = gdb.backtraceCommand(500);
    EXPECT_TRUE(send(1, STATCLIENT, "all", "stat").ends_with(" / type 3 " + command));
    prints({0, 1}, "\nThread 1 (LWP 1):\n#0  poll () at p.c:1\n#1  0x1 in main () at m.c:2\n");
    const std::string inMain = "\nThread 1 (LWP 1):\n#0  main () at m.c:1\n";
    prints({2}, inMain);
    EXPECT_EQ(prompts({0, 2, 3}), "");
    EXPECT_EQ(prompts({1}),
              "1 0@2 1 client in main / 1 0@0:1 2 clients in poll, called by main / 1 1@3 no "
              "stack: no process / 1 2@0:2 main / 1 3@0:1   poll / 1 READY 1");
    filtered();
    EXPECT_EQ(send(1, STATCLIENT, "2", "stat -s -i|grep x"), "type 2 " + command);
    EXPECT_EQ(answers({2}, inMain), "start 2 grep x < 2 | 1 client in main at m.c:1\n");
    // A line that comes back keeps its clients, another is about all.
    board.userProgramOutput(2, "2 | 1 client in main at m.c:1\n1 line\n", now);
    board.userProgramEnded(2, "", now);
    EXPECT_EQ(happened(), "1 0@2 1 client in main at m.c:1 / 1 1@2 1 line / 1 READY 1");
    filtered();
    EXPECT_EQ(types(1, "1", "vex who | grep 1"), "start 1 grep 1 < 1 | task of 1\n");
    board.userProgramOutput(1, "1 | task of 1\n", now);
    board.userProgramEnded(1, "", now);
    EXPECT_EQ(happened(), "1 0@1 task of 1 / 1 READY 1");
}

} // namespace

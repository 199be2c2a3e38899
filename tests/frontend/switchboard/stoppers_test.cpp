// "vex interrupt": stopping what others have running.
#include "tests/frontend/switchboard/switchboardtest.h"

namespace {

class StoppersTest : public SwitchboardTest {
  protected:
    // Console 2 stops what console 1 has running there.
    std::string stop(const std::string& where = "all") { return types(2, where, "vex interrupt"); }
    const std::string all = "2 0@0:3 interrupts 'continue' of console 1 / ";
};

TEST_F(StoppersTest, BothConsolesAreFreeWhenAllHaveStopped) {
    EXPECT_EQ(stop(), "2 0@0:3 nothing of other consoles runs / 2 READY 2");
    group(2, ASSIGN, "FILTERED", {0});
    running();
    EXPECT_EQ(stop(), all + "SIGINT 0 / SIGINT 1 / SIGINT 2 / SIGINT 3");
    EXPECT_EQ(stops({0, 1, 2}), "");
    EXPECT_EQ(stops({3}), "1 0@0:3 received signal SIGINT / 2 READY 2 / 1 READY 1");
    EXPECT_EQ(pass(5s), "");
}

TEST_F(StoppersTest, TheOwnerIsFreeWhenThatPartHasStoppedAndItsOwnRunsOn) {
    group(1, ASSIGN, "odd", {1, 3});
    types(2, "0", "continue");
    on(2, "1");
    types(1, "odd", "continue");
    EXPECT_EQ(stop("all"), "2 0@1 3 interrupts 'continue' of console 1 / "
                           "2 1@0 leaves 'continue' of this console / SIGINT 1 / SIGINT 3");
    stops({1, 3});
    filtered();
    group(2, ASSIGN, "FILTERED", {0});
    running("odd");
    EXPECT_EQ(stop("1"), "2 0@1 interrupts 'continue' of console 1 / SIGINT 1");
    EXPECT_EQ(stops({1}), "2 READY 2 / 1 0@1 received signal SIGINT / 1 READY 1");
    filtered();
    // The rest ends unheard, as after an interrupt of its own.
    EXPECT_EQ(types(1, "1", "where"), "type 1 where");
    EXPECT_EQ(prompts({3}), "");
    EXPECT_EQ(prompts({1}), "1 READY 1");
}

TEST_F(StoppersTest, WaitsForASecondAndNotBehindAnotherRequest) {
    running();
    stop();
    EXPECT_EQ(pass(999ms), "");
    stops({0, 1});
    EXPECT_EQ(pass(1ms), "2 0@2:3 has not stopped yet / 2 READY 2");
    // What stops later frees nobody before all have.
    EXPECT_EQ(pass(1s), "1 0@0:1 received signal SIGINT");
    EXPECT_EQ(stops({2}), "");
    EXPECT_EQ(stops({3}), "1 0@2:3 received signal SIGINT / 1 READY 1");
    filtered();
    group(2, ASSIGN, "FILTERED", {0});
    // After Ctrl-C: its answer is that to the request.
    running();
    stop();
    EXPECT_EQ(interrupts("all", 2), "2 ON_NORMAL all");
    EXPECT_EQ(stops({0, 1, 2, 3}), "1 0@0:3 received signal SIGINT / 1 READY 1");
    EXPECT_EQ(pass(5s), "");
    filtered();
    // Nor when who asked has left: a second later, what stops is as if nobody had asked.
    group(1, ASSIGN, "FILTERED", {0});
    running();
    EXPECT_EQ(stop("0"), "2 0@0 interrupts 'continue' of console 1 / SIGINT 0");
    board.consoleLeft(2);
    EXPECT_EQ(pass(1s), "");
    board.consoleJoined(2);
    EXPECT_EQ(stops({0}), "");
    EXPECT_EQ(pass(1s), "1 0@0 received signal SIGINT");
    EXPECT_EQ(stops({1, 2, 3}), "1 0@1:3 received signal SIGINT / 1 READY 1");
    filtered();
    // Of a console that has left.
    running("0");
    board.consoleLeft(1);
    EXPECT_EQ(stop("0"), "2 0@0 interrupts 'continue' of a console that has left / SIGINT 0");
    EXPECT_EQ(stops({0}), "2 READY 2");
}

// Under a script; else they wait for whoever sees it.
TEST_F(StoppersTest, WhatWaitsForATaskKeptAtMpiAbortIsInterrupted) {
    for (const bool unattended : {false, true}) {
        if (unattended) board.runsUnattended();
        group(1, ASSIGN, "three", {0, 1, 2});
        running("three");
        types(2, "3", "continue");
        board.output(1, "The task calls MPI_Abort and is kept from ending: where\n", now);
        prompts({1});
        const std::string told = pass(1s) + pass(2s);
        EXPECT_EQ(told.find("interrupted, so that the script goes on: 1 is kept at MPI_Abort / "
                            "SIGINT 0 / SIGINT 2") != std::string::npos,
                  unattended)
            << told;
        EXPECT_EQ(told.find("SIGINT 3"), std::string::npos);
        EXPECT_EQ(board.keptTasks().contains("MPI_Abort"), unattended);
        prompts({0, 2, 3});
        pass(1s);
        filtered();
        // Those that go on without it wait for it again.
        types(1, "0", "continue");
        const std::string again = pass(2s);
        EXPECT_EQ(again.find("1 is kept at MPI_Abort / SIGINT 0") != std::string::npos, unattended)
            << again;
        prompts({0});
        filtered();
        group(2, ASSIGN, "FILTERED", {3});
    }
}

TEST_F(StoppersTest, AKeptTaskIsLetGoOnlyByWhatLeavesItsPlace) {
    board.runsUnattended();
    const std::pair<const char*, bool> cases[] = {
        {"call f()", false}, {"source a.gdb", false}, {"print 1", false},
        {"cont", true},      {"detach", true},
    };
    for (const auto& [line, leaves] : cases) {
        for (const bool byScript : {false, true}) {
            const auto begin = [&](const std::string& where, const std::string& what) {
                if (!byScript) return types(1, where, what);
                send(1, SCRIPTCLIENT, where, "script ./it");
                board.userProgramOutput(std::stoi(where), "vex_cmd " + what + "\n", now);
                board.userProgramEnded(std::stoi(where), "", now);
                return happened();
            };
            begin("1", "continue");
            answers({1}, "The task calls MPI_Abort and is kept from ending: where\n");
            filtered();
            EXPECT_EQ(begin("1", line), std::string("type 1 ") + line);
            // It waits for nobody.
            EXPECT_EQ(pass(4s).find("SIGINT"), std::string::npos);
            prompts({1});
            filtered();
            begin("0", "continue");
            const std::string told = pass(4s);
            EXPECT_EQ(told.find("1 is kept at MPI_Abort / SIGINT 0") == std::string::npos, leaves)
                << line << (byScript ? " of a script: " : ": ") << told;
            prompts({0});
            filtered();
        }
    }
}

// But what a task that has crashed leaves at work may have work to do.
TEST_F(StoppersTest, AScriptSaysForWhomItWaitsBehindACrash) {
    const std::string wait = "the script waits for these, and 1 crashed with SIGSEGV:";
    for (const bool unattended : {false, true}) {
        if (unattended) board.runsUnattended();
        running();
        board.output(1, "Thread 2 \"a\" received signal SIGSEGV, Segmentation fault.\n", now);
        // Its own words.
        board.output(2, "Program received signal SIGFPE: Floating-point exception\n", now);
        prompts({1});
        EXPECT_EQ(pass(9s).find(wait), std::string::npos);
        const std::string told = pass(2s);
        EXPECT_EQ(told.find(wait) != std::string::npos, unattended) << told;
        EXPECT_EQ(pass(1h), "");
        prompts({0, 2, 3});
        filtered();
    }
    // What goes on without it is another command.
    types(1, "0", "continue");
    EXPECT_NE(pass(11s).find("waits for these, and 1 crashed with SIGSEGV:"), std::string::npos);
    prompts({0});
    filtered();
    running();
    EXPECT_EQ(pass(11s).find("crashed with"), std::string::npos);
}

} // namespace

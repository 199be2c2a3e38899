// How tasks are stopped, and let run again: samples of stacks, MPI_Abort, and what other consoles
// have running; with real debuggers.
#include "tests/support/vextest.h"

class Stops : public VexTest {
  protected:
    Peer start(const Lines& more) {
        Lines arguments{"-n", "3"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return Peer(beginWith(arguments));
    }
    // Runs until all tasks have said so.
    static void run(Peer& console) {
        console.send(Command::CLIENT, "all", "run");
        awaitTasks(console);
    }
    static void awaitTasks(Peer& console) {
        for (int told = 0; told < 3;) {
            for (const std::string& line : console.next())
                told += line.find(" runs") != std::string::npos;
        }
    }
    static Lines interrupt(Peer& console) {
        console.send(Command::INTERRUPT, "all");
        return console.finish();
    }
};

TEST_F(Stops, SamplesTellWhoMovesAndLeaveTasksAsTheyStood) {
    Peer console = start({program("descending")});
    const Lines unstarted = console.command("vex stat -t 2");
    EXPECT_TRUE(contain(unstarted, "0:2 | not made to run: it has no process"));
    run(console);
    interrupt(console);
    console.command("up", "2");
    const Lines first = console.command("vex stat -i -t 3 -w 0.5");
    EXPECT_TRUE(contain(first, "2 | 1 client in search, called by main · never moved")) << first[0];
    EXPECT_TRUE(contain(first, "0:2 | moved: 0:1 · never: 2 · 3 samples 0.5 s apart"));
    // Nothing is told of the interrupts, and the next where is in the innermost frame.
    EXPECT_FALSE(contain(first, "SIGINT"));
    EXPECT_TRUE(contain(console.command("frame", "2"), "#0 "));
    // One comes to a breakpoint, and stays there from then on.
    console.command("break descend", "1");
    const Lines second = console.command("vex stat -i -t 2 -w 1");
    EXPECT_TRUE(contain(second, "1 | Breakpoint 1, "));
    const Lines before = console.command("bt -1", "1"), third = console.command("vex stat -t 2");
    EXPECT_TRUE(contain(third, "1 | not made to run: no interrupt has stopped it"));
    EXPECT_FALSE(contain(third, "Breakpoint"));
    EXPECT_EQ(console.command("bt -1", "1"), before);
    // Another stands in a function that was called from the prompt.
    console.command("break descend", "0");
    console.command("print descend(2)", "0");
    EXPECT_TRUE(contain(console.command("vex stat -t 2"),
                        "0:1 | not made to run: no interrupt has stopped it"));
    quit(console);
}

TEST_F(Stops, AnInterruptSelectsTheMainThread) {
    // An interrupt stops it in the other thread.
    Peer console = start({program("steadily"), "threads", "deaf"});
    for (const char* const line : {"tbreak step", "run"})
        console.command(line);
    console.send(Command::CLIENT, "all", "continue");
    EXPECT_TRUE(contain(interrupt(console), "hread 2 \"steadily\" received signal SIGINT"));
    const Lines all = console.command("thread");
    EXPECT_TRUE(contain(all, "[Current thread is 1 ") && !contain(all, "thread is 2")) << all[0];
    console.command("tbreak step thread 2", "1");
    console.send(Command::CLIENT, "all", "continue");
    while (!contain(console.next(), "hit Temporary breakpoint 2")) {
    }
    interrupt(console);
    const Lines threads = console.command("thread");
    for (const char* const expected :
         {"0 | [Current thread is 1 ", "1 | [Current thread is 2 ", "2 | [Current thread is 1 "})
        EXPECT_TRUE(contain(threads, expected)) << expected;
    quit(console);
}

TEST_F(Stops, SamplesOfTasksBehindAgents) {
    const std::string hosts = folder.write("hosts", "node1:2\nnode2\n");
    Peer console(beginWith({"--launch", fakeSsh(), "--hosts", hosts, program("descending")}));
    run(console);
    interrupt(console);
    const Lines told = console.command("vex stat -i -t 3 -w 0.5");
    EXPECT_TRUE(contain(told, "2 | 1 client in search, called by main · never moved")) << told[0];
    EXPECT_TRUE(contain(told, "0:2 | moved: 0:1 · never: 2 · 3 samples 0.5 s apart"));
    EXPECT_FALSE(contain(told, "SIGINT"));
    quit(console);
}

TEST_F(Stops, ForksBetweenSamplesAreTold) {
    Peer console = start({program("forker"), "held"});
    console.command("break rest");
    console.command("run");
    console.send(Command::CLIENT, "all", "continue");
    interrupt(console);
    console.command("print hold = 0");
    const Lines told = console.command("vex stat -t 2");
    EXPECT_TRUE(contain(told, "[Detaching after ")) << told[0];
    quit(console);
}

TEST_F(Stops, ATaskThatWouldEndTheJobIsKeptAndNoBreakpointIsSeen) {
    Peer console = start({program("descending"), "abort"});
    EXPECT_TRUE(contain(console.command("info breakpoints"), "No breakpoints"));
    EXPECT_TRUE(contain(console.command("break main"), "Breakpoint 1 at"));
    console.command("delete");
    console.send(Command::CLIENT, "0", "run");
    const Lines kept = console.finish();
    EXPECT_TRUE(contain(kept, "0 | The task calls MPI_Abort and is kept from ending"));
    EXPECT_FALSE(contain(kept, "Breakpoint"));
    EXPECT_TRUE(contain(console.command("where", "0"), "MPI_Abort ("));
    EXPECT_TRUE(contain(console.command("info breakpoints", "0"), "No breakpoints"));
    EXPECT_TRUE(contain(console.command("continue", "0"), "exited with code 07"));
    quit(console);
    // Without it.
    Peer other = start({"--stop-on-abort", "no", program("descending"), "abort"});
    other.send(Command::CLIENT, "0", "run");
    EXPECT_TRUE(contain(other.finish(), "exited with code 07"));
    quit(other);
}

TEST_F(Stops, AScriptGoesOnWhenATaskIsKept) {
    const std::string script = folder.write("script", "run\nstat -i\n");
    launch({"-n", "3", "--script", script, program("descending"), "abort"});
    vex->until("1:2 | interrupted, so that the script goes on: 0 is kept at MPI_Abort");
    vex->until("| 1 client in MPI_Abort, called by descend");
    vex->until("vex: MPI_Abort was called by 0");
    EXPECT_EQ(vex->exitStatus(), 3);
}

TEST_F(Stops, WhatAnotherConsoleHasRunningCanBeStopped) {
    Peer owner = start({program("descending")});
    Peer other(socketPath);
    other.deaf = true;
    run(owner);
    const Lines told = other.command("vex interrupt");
    EXPECT_EQ(told.back(), "READY");
    EXPECT_TRUE(contain(told, "0:2 | interrupts 'run' of console 1"));
    const Lines stopped = owner.finish();
    EXPECT_TRUE(contain(stopped, "0:2 | Program received signal SIGINT")) << stopped[0];
    EXPECT_TRUE(contain(other.command("where 1", "2"), "search ("));
    quit(owner);
}

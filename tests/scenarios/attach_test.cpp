#include "backend/os/tracing.h"
#include "common/descriptor.h"
#include "tests/support/vextest.h"
#include "tests/support/walker.h"

namespace {

// vex with tasks that run before it is there, and what tasks fork.
class AttachTest : public VexTest {};

TEST_F(AttachTest, WhatADebuggerHoldsIsFoundWhereverItStands) {
    const Walker walker;
    Peer console(beginWith({"-n", "1", "/bin/sh"}));
    const auto who = [&console] { return console.command("vex who").at(0); };
    EXPECT_TRUE(who().ends_with("pid -  sh, not running")) << who();
    console.command("set follow-fork-mode child");
    console.send(Command::CLIENT, "all", "run -c 'sleep 1000 & wait'");
    EXPECT_TRUE(eventually([&] {
        const auto sleeps = named("sleep", living());
        return std::ranges::any_of(sleeps, [](pid_t id) { return Tracing::tracerOf(id) > 0; });
    }));
    console.send(Command::INTERRUPT, "all");
    console.finish();
    EXPECT_TRUE(who().ends_with("  sleep")) << who();
    console.command("kill");
    console.command("attach " + walker.number());
    EXPECT_TRUE(who().ends_with("pid " + walker.number() + "  steadily")) << who();
    const std::string core = folder.path("kept");
    console.command("generate-core-file " + core);
    console.command("detach");
    console.command("core-file " + core);
    EXPECT_TRUE(who().ends_with("pid -  sh, core file kept")) << who();
    quit(console);
}

TEST_F(AttachTest, WhatItAttachedToRunsOnWithoutBreakpoints) {
    std::unique_ptr<Peer> console;
    const auto kquit = [&] { console->send(Command::QUIT, "all"); };
    const auto types = [&](const char* line) { console->send(Command::CLIENT, "all", line); };
    const auto freeRun = [&] { types("continue"); };
    const auto killAndKquit = [&](const char* name) {
        kill(named(name, living()));
        kquit();
    };
    const auto killKeepers = [&] { killAndKquit("vexagent"); };
    const auto killNode = [&] { killAndKquit("vexagent-node"); };
    const struct {
        const char* name;
        Lines walker;
        std::function<void()> before, end;
        bool remote = false; // the second one, as far as vex knows
    } cases[] = {
        {"idle, kquit", {}, [] {}, kquit, true},
        {"idle, SIGKILL", {}, [] {}, [&] { vex->signal(SIGKILL); }},
        {"running, kquit", {"threads"}, freeRun, kquit},
        {"running, SIGTERM", {"threads"}, freeRun, [&] { vex->signal(SIGTERM); }, true},
        {"running, SIGKILL", {"threads"}, freeRun, [&] { vex->signal(SIGKILL); }, true},
        {"running, its keeper killed, kquit", {"threads"}, freeRun, killKeepers, true},
        {"running, the node's agent killed, kquit", {"threads"}, freeRun, killNode, true},
        {"running, SIGINT blocked, kquit", {"deaf"}, freeRun, kquit, true},
        {"with a question, kquit", {}, [&] { types("commands"); }, kquit},
        {"the debuggers' own quit", {"threads"}, [] {}, [&] { types("quit"); }, true},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const Walker walkers[2]{Walker(each.walker), Walker(each.walker)};
        const std::string file = folder.write(
            "attach.cfg", "5100\n2\n0 0 127.0.0.1 localhost " + walkers[0].number() +
                              " 1 /bin/x \n1 0 " +
                              (each.remote ? "198.51.100.7 node1 " : "127.0.0.1 localhost ") +
                              walkers[1].number() + " 1 /bin/x \n");
        const std::string path = beginWith({"--attach-config", file, "--rsh", fakeSsh()});
        console = std::make_unique<Peer>(path);
        // The first one steps on its breakpoint all the time, and goes on.
        console->command("break step");
        console->command("ignore 1 1000000");
        each.before();
        sleepFor(100);
        const auto sleepers = consoles();
        each.end();
        kill(sleepers);
        vex->exitStatus();
        expectNothingLeft(path);
        for (const Walker& walker : walkers)
            EXPECT_TRUE(walker.walks());
        console.reset();
    }
}

// Two tasks of this host, one of another, one of a host that cannot be reached.
TEST_F(AttachTest, AttachesToWhatAnAttachFileNames) {
    const Walker walkers[4];
    const std::string file = folder.write(
        "attach.cfg", "5100\n6\n2 0 127.0.0.1 localhost " + walkers[1].number() + " 1 /bin/x \n" +
                          "0 0 127.0.0.1 localhost " + walkers[0].number() + " 1 /bin/x \n" +
                          "1 0 127.0.0.1 localhost -1 1 /bin/x \n" + "3 0 198.51.100.7 node1 " +
                          walkers[2].number() + " 1 /bin/x \n" + "5 0 198.51.100.7 node1 " +
                          walkers[3].number() + " 1 /bin/x \n" +
                          "4 0 198.51.100.8 nowhere 77 1 /bin/x \n");
    const std::string reach =
        script("reach", "#!/bin/sh\ncase $1 in nowhere) echo no route; exit 255; esac\nexec " +
                            fakeSsh() + " \"$@\"\n");
    const std::string path = beginWith({"--attach-config", file, "--rsh", reach});
    vex->until("vex: task 1 is left out: it has no process\n");
    vex->until("vex: client 3 is left out: " + reach +
               " for host nowhere ended with status 255 before its task was there.");
    Peer console(path);
    EXPECT_EQ(console.command("python print(gdb.selected_inferior().pid)"),
              (Lines{"0 | " + walkers[0].number(), "1 | " + walkers[1].number(),
                     "2 | " + walkers[2].number(), "4 | " + walkers[3].number(), "READY"}));
    // Its two tasks take one login.
    EXPECT_EQ(folder.read("hosts.log"), "node1\n");
    // The tasks' code lies at different addresses; those of data are shown.
    vex->until("without their code addresses");
    console.command("break step");
    console.command("continue");
    const Lines stack = console.command("where 2");
    EXPECT_NE(stack.at(1).find(" | #1  main (argc=1, argv=0x"), std::string::npos) << stack.at(1);
    EXPECT_TRUE(
        console.command("vex who")[2].ends_with("pid " + walkers[2].number() + "  steadily"));
    quit(console);
    EXPECT_TRUE(walkers[2].walks() && walkers[3].walks());
}

// Also where agents run the debuggers.
TEST_F(AttachTest, WhatTheTasksForkBecomesClients) {
    const std::string hosts = folder.write("hosts", "node1\nnode2\n");
    const Lines starts[] = {{"-n", "2"}, {"--launch", fakeSsh(), "--hosts", hosts}};
    for (const Lines& start : starts) {
        Lines arguments = start;
        arguments.push_back(program("forker"));
        const std::string path = beginWith(arguments);
        Peer first(path), second(path), third(path);
        // A program can print anything: nobody else's process becomes a client.
        const std::string stranger = std::to_string(childOf(vex->pid(), "vex"));
        first.command("echo [Detaching after fork from child process " + stranger + "]\\n");
        first.command("python print('[Detaching after fork from child process %d]' % "
                      "__import__('os').getpid())");
        first.send(Command::CLIENT, "all", "run");
        EXPECT_EQ(third.forked(2), (ClientSet{2, 3}));
        second.forked(2);
        // It stands where it was attached to; when it goes on, it forks as well.
        second.command("print hold = 0", "2");
        second.send(Command::CLIENT, "2", "continue");
        EXPECT_EQ(third.forked(1), ClientSet{4});
        // Neither the shell's command nor what became another program is one.
        EXPECT_EQ(third.command("vex who").size(), 6u);
        third.command("print hold = 0", "4");
        const Lines last = third.command("continue", "4");
        EXPECT_TRUE(contain(last, "exited with code 01]")) << testing::PrintToString(last);
        EXPECT_TRUE(contain(second.finish(), "exited with code 02]"));
        while (!contain(first.next(), "| generations: 2")) {
        }
        EXPECT_FALSE(contain(third.command("quit", "4"), "is not being run"));
        vex->signal(SIGKILL);
        expectNothingLeft(path);
    }
}

// A worker that spins is first among those that wait for work, however Python has begun them.
TEST_F(AttachTest, WorkersOfPython) {
    const std::string python = "/usr/bin/python3";
    if (::access(python.c_str(), X_OK) != 0) GTEST_SKIP() << "without Python";
    const std::string file = folder.write("pool.py", R"(
import multiprocessing, sys
def search():
    print("spins", flush=True)
    while True: pass
def work(queue, number):
    if number == 1: search()
    queue.get()
if __name__ == "__main__":
    context = multiprocessing.get_context(sys.argv[1])
    queue = context.Queue()
    workers = [context.Process(target=work, args=(queue, number)) for number in range(2)]
    for each in workers: each.start()
    for each in workers: each.join()
)");
    // Python has a process of its own with those that it spawns.
    for (const auto& [method, processes] : {std::pair("fork", 2), std::pair("spawn", 3)}) {
        const std::string path = beginWith({"-n", "1", python, file, method});
        Peer first(path), second(path);
        first.send(Command::CLIENT, "all", "run");
        second.assign("WORKERS", second.forked(processes));
        second.send(Command::CLIENT, "WORKERS", "continue");
        while (!contain(first.next(), "spins")) {
        }
        second.send(Command::INTERRUPT, "WORKERS");
        second.finish();
        const Lines places = second.command("vex stat", "WORKERS");
        EXPECT_NE((places[0] + places[1]).find("search (pool.py:"), std::string::npos)
            << method << testing::PrintToString(places);
        vex->signal(SIGKILL);
        expectNothingLeft(path);
    }
}

TEST_F(AttachTest, WhatAnAttachedTaskHasForkedRunsOn) {
    for (const char* place : {"127.0.0.1 localhost ", "198.51.100.7 node1 "}) {
        Terminal task({{program("forker"), "wait"}});
        const std::string file =
            folder.write("attach.cfg", "5100\n1\n0 0 " + std::string(place) +
                                           std::to_string(task.pid()) + " 1 /bin/x \n");
        const std::string path = beginWith({"--attach-config", file, "--rsh", fakeSsh()});
        Peer first(path), second(path);
        first.command("print hold = 0");
        first.send(Command::CLIENT, "all", "continue");
        EXPECT_EQ(second.forked(1), ClientSet{1});
        const std::vector<pid_t> children = tasksOf(task.pid(), "forker");
        ASSERT_EQ(children.size(), 1u);
        EXPECT_GT(Tracing::tracerOf(children[0]), 0);
        quit(second);
        for (pid_t each : {task.pid(), children[0]}) {
            EXPECT_TRUE((ProcessTree::parentOf(each) != 0));
            EXPECT_EQ(Tracing::tracerOf(each), 0);
        }
    }
}

TEST_F(AttachTest, AttachesToTheTasksOfAnMpiJob) {
    // The task of another host is not below its launcher.
    const std::string away = script("away", "#!/bin/sh\nshift 2\nsetsid --fork sh -c \"$*; touch " +
                                                folder.path("done") + "\"\nuntil [ -e " +
                                                folder.path("done") + " ]; do sleep 0.05; done\n");
    // The launchers of the MPI libraries that this system has, each with the example built for it.
    const struct {
        const char* program;
        Lines launcher;
        std::size_t below = 2;
    } mpis[] = {
        {"ring.openmpi", {"mpirun.openmpi", "--oversubscribe", "-np", "2"}},
        {"ring.mpich", {"mpiexec.mpich", "-n", "2"}},
        {"ring.mpich",
         {"mpiexec.mpich", "-launcher", "ssh", "-launcher-exec", away, "-hosts", "localhost,node1",
          "-n", "2"},
         1},
    };
    int tried = 0;
    for (const auto& mpi : mpis) {
        SCOPED_TRACE(mpi.program);
        if (::access(program(mpi.program).c_str(), X_OK) != 0) continue;
        ++tried;
        Lines words = mpi.launcher;
        words.push_back(program(mpi.program));
        Terminal job({words});
        // Time for MPI_Init, behind which a task knows its rank.
        ASSERT_TRUE(eventually([&] { return tasksOf(job.pid(), mpi.program).size() >= mpi.below; }))
            << job.screen();
        EXPECT_TRUE(eventually([&] {
            launch({"--report", folder.path("report.txt"), "--mpi", std::to_string(job.pid()),
                    "--rsh", fakeSsh()});
            EXPECT_EQ(vex->exitStatus(), 0) << vex->screen();
            return folder.read("report.txt")
                .starts_with("what 2 tasks do\n1 | 1 client in search, called by go_round\n");
        })) << folder.read("report.txt");
        const std::string path =
            beginWith({"--mpi", std::to_string(job.pid()), "--rsh", fakeSsh()});
        Peer console(path);
        EXPECT_EQ(console.command("print rank"), (Lines{"0 | $1 = 0", "1 | $1 = 1", "READY"}));
        console.command("print lost = 0");
        quit(console);
        // Released, they come to their end.
        EXPECT_EQ(job.exitStatus(), 0);
    }
    if (tried == 0) GTEST_SKIP() << "there is no MPI here (Debian: openmpi-bin, mpich)";
}

TEST_F(AttachTest, HalfAJobIsDebuggedOnlyWhenItsUserSaysSo) {
    const std::string launcher =
        script("launcher", "#!/bin/sh\nexport OMPI_COMM_WORLD_SIZE=4 PMIX_NAMESPACE=job-$$@1\n"
                           "for rank in 0 2; do OMPI_COMM_WORLD_RANK=$rank " +
                               program("steadily") + " & done\nwait\n");
    Terminal job({{launcher}});
    ASSERT_TRUE(eventually([&] { return tasksOf(job.pid(), "steadily").size() == 2; }));
    const Lines mpi{"--mpi", std::to_string(job.pid())};
    const std::string missing = "vex: ranks 1 3 of 4 are missing: no process of yours on this host "
                                "has them, and the launcher does not tell of another host\n";
    const std::string question = "vex: go on with the 2 that were found? (y/n) ";

    Lines partial = mpi;
    partial.push_back("--partial");
    launch({"--report", folder.path("report.json"), mpi[0], mpi[1], "--partial"});
    EXPECT_EQ(vex->exitStatus(), 0) << vex->screen();
    EXPECT_NE(folder.read("report.json").find("\n\"missing\":[\n{\"ranks\":[[1,1],[3,3]],\n"),
              std::string::npos);
    Peer console(beginWith(partial));
    vex->until(missing);
    EXPECT_EQ(console.command("print 1"), (Lines{"0:1 | $1 = 1", "READY"}));
    quit(console);

    for (const std::string keys : {"n", "\003", "", "y"}) {
        SCOPED_TRACE(Terminal::visible(keys));
        std::filesystem::remove(folder.path("session"));
        launch({"--console", folder.path("console"), mpi[0], mpi[1]});
        vex->until(missing + question);
        vex->type(keys);
        const bool givenUp = keys == "n" || keys == "\003";
        if (keys == "y") {
            await("session");
            EXPECT_TRUE(vex->isRestored());
        }
        if (givenUp)
            vex->until("n\nvex: the start was given up\n");
        else
            vex->signal(SIGTERM);
        EXPECT_EQ(vex->exitStatus(), givenUp ? 1 : 128 + SIGTERM);
        EXPECT_TRUE(vex->isRestored());
    }

    input = "print 1\n";
    launch({mpi[0], mpi[1]});
    vex->until(missing + "vex: to go on with the 2 that were found: --partial\n");
    EXPECT_EQ(vex->exitStatus(), 1);
    for (const pid_t task : tasksOf(job.pid(), "steadily"))
        EXPECT_EQ(Tracing::tracerOf(task), 0);
}

} // namespace

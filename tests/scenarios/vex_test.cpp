#include "backend/os/tracing.h"
#include "tests/support/vextest.h"

namespace {

// What a user does with either debugger, and how it answers.
struct Dialect {
    std::string evaluate, breakpoint, stopped, forget, type, signal;
    int values; // results before the first
};

void debugFourTasks(Peer& console, const Dialect& with) {
    const auto value = [&with](int number, const std::string& result) {
        return " | " + with.type + "$" + std::to_string(with.values + number) + " = " + result;
    };
    EXPECT_EQ(console.command(with.evaluate + " 6 * 7"), (Lines{"0:3" + value(0, "42"), "READY"}));
    console.command(with.breakpoint);
    // It answers when the program has stopped, not before.
    EXPECT_TRUE(contain(console.command("run"), with.stopped));
    Lines ranks;
    for (const std::string rank : {"0", "1", "2", "3"})
        ranks.push_back(rank + value(1, rank));
    ranks.push_back("READY");
    EXPECT_EQ(console.command(with.evaluate + " rank"), ranks);
    EXPECT_TRUE(contain(console.command("vex who"), "halo"));
    console.send(Command::STATCLIENT, "all", "stat -i");
    EXPECT_EQ(console.finish()[0], "0:3 | 4 clients in simulate, called by main");
    console.command(with.forget);
    for (int round = 0; round < 3; ++round) {
        console.send(Command::CLIENT, "all", "continue");
        if (round == 0) console.awaitTheHang(4);
        console.send(Command::INTERRUPT, "all");
        EXPECT_TRUE(contain(console.finish(), with.signal));
        EXPECT_EQ(console.command(with.evaluate + " 1").size(), 2u);
    }
    // The debugger's own quit is the normal end.
    console.send(Command::CLIENT, "3", "quit");
    EXPECT_EQ(console.finish(), (Lines{"REPLY 5 3", "READY"}));
}

TEST_F(VexTest, RecordsThatAreNeverFinishedDoNotFillTheMemory) {
    Peer console(begin(1));
    std::vector<std::unique_ptr<Peer>> rogues;
    for (int i = 0; i < 5; ++i) {
        rogues.push_back(std::make_unique<Peer>(socketPath));
        rogues.back()->raw(std::string("\0\xff\xff\xff", 4) + std::string(15 << 20, 'x'));
    }
    const Lines told = console.next();
    EXPECT_TRUE(contain(told, " was dropped: it does not finish a record")) << told[0];
    EXPECT_EQ(console.command("print 1"), (Lines{"0 | $1 = 1", "READY"}));
    quit(console);
}

TEST_F(VexTest, ASessionWithGdb) {
    const std::string path = begin(4);
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
    Peer console(path);
    debugFourTasks(console, {"print", "break simulate", "Breakpoint 1, simulate", "delete 1", "",
                             "received signal SIGINT", 1});
    // The empty line repeats the last command; behind a backslash no second line is waited for.
    for (const char* line : {"echo x\\n", "", "echo x\\", "echo x\\\\"}) {
        console.send(Command::CLIENT, "2", line);
        EXPECT_EQ(console.finish(), (Lines{"2 | x", "READY"})) << line;
    }
    // What the debugger prints slowly while its task stands still is one line.
    EXPECT_EQ(console.command("python import time; [(gdb.write('%d,' % i), gdb.flush(), "
                              "time.sleep(0.7)) for i in range(3)]; gdb.write('\\a\\n')",
                              "1"),
              (Lines{"1 | 0,1,2,^G", "READY"}));
    EXPECT_EQ(console.command("nosuch", "1"),
              (Lines{"1 | Undefined command: \"nosuch\".  Try \"help\".", "READY"}));
    console.send(Command::CLIENT, "all", "quit");
    Lines end = console.untilReady();
    std::sort(end.begin(), end.end() - 1); // in the order in which they went
    EXPECT_EQ(end, (Lines{"REPLY 5 0", "REPLY 5 1", "REPLY 5 2", "REPLY -1 803"}));
    EXPECT_TRUE(console.closed());
    expectEnd(0);
}

TEST_F(VexTest, ASessionWithLldb) {
    if (::access("/usr/bin/lldb", X_OK) != 0) GTEST_SKIP() << "there is no lldb (Debian: lldb)";
    Peer console(begin(4, {"--debugger", "/usr/bin/lldb"}));
    debugFourTasks(console,
                   {"expression", "breakpoint set -n simulate", "stop reason = breakpoint 1.1",
                    "breakpoint delete 1", "(int) ", "stop reason = signal SIG", 0});
    quit(console);
}

// What the debugger itself waits for; the program, which waits too, is told once and only then.
TEST_F(VexTest, AnInterruptStopsWhatTheDebuggerRunsForIt) {
    Peer console(begin(2));
    for (const char* text : {"shell sleep 100", "!sleep 100; sleep 100", "pipe print 1 | sleep 100",
                             "make -f /dev/null --eval 'x:;@sleep 100' x"}) {
        SCOPED_TRACE(text);
        console.send(Command::CLIENT, "all", text);
        sleepFor(100);
        console.send(Command::INTERRUPT, "all");
        EXPECT_EQ(console.finish().back(), "READY");
    }
    console.command("break simulate");
    console.command("run");
    console.send(Command::CLIENT, "all", "continue");
    console.send(Command::INTERRUPT, "all");
    console.finish();
    for (const std::string& line : console.command("info proc status")) {
        EXPECT_TRUE(line.find("Pnd:") == std::string::npos || line.ends_with("0000")) << line;
    }
    EXPECT_EQ(console.command("print 1").size(), 2u);
    quit(console);
}

// More clients than the user's limit has room for; what they run keeps that limit.
TEST_F(VexTest, ALowLimitOfOpenFilesIsNoObstacle) {
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit low{24, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    const std::string path = begin(10);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    Peer console(path);
    EXPECT_EQ(console.command("shell ulimit -Sn"), (Lines{"0:9 | 24", "READY"}));
    quit(console);
}

TEST_F(VexTest, TheProgramWritesWhereItsCommandLineSays) {
    const std::string both = folder.write("both", "echo out\necho err >&2\n");
    Peer console(beginWith({"-n", "1", "/bin/sh"}));
    const std::string file = folder.path("file");
    const struct {
        std::string redirection, filed;
        bool out, err;
    } cases[] = {
        {"", "", true, true},
        {" >" + file, "out\n", false, true},
        {" 2>" + file, "err\n", true, false},
        {" >" + file + " 2>&1", "out\nerr\n", false, false},
        {" </dev/null", "", true, true},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.redirection);
        folder.write("file", "");
        const Lines lines = console.command("run " + both + each.redirection);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "0 | out"), each.out);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "0 | err"), each.err);
        EXPECT_EQ(folder.read("file"), each.filed);
    }
    quit(console);
}

// A program behind the bar may read as much as it likes.
TEST_F(VexTest, AFilterThatHasReadEnoughCostsNoTime) {
    Peer console(begin(1));
    clockid_t clock = 0;
    ASSERT_EQ(::clock_getcpuclockid(sessionPid(), &clock), 0);
    const auto used = [clock] {
        timespec time{};
        ::clock_gettime(clock, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    const auto answer = [&](const std::string& filter) {
        const double before = used();
        EXPECT_EQ(console.command("python print('x' * 1000000) | " + filter).back(), "READY");
        return used() - before;
    };
    const double all = answer("cat >/dev/null");
    EXPECT_LT(answer("head -c1; exec <&-; sleep 2"), 0.3 + 2 * all);
    quit(console);
}

TEST_F(VexTest, NothingIsLeftBehind) {
    std::unique_ptr<Peer> console;
    pid_t guardian = -1, session = -1;
    const struct {
        const char* name;
        std::function<void()> end;
        int status;
        bool terminal = true;
    } ways[] = {
        {"kquit", [&] { console->send(Command::QUIT, "all"); }, 0},
        {"SIGTERM", [&] { vex->signal(SIGTERM); }, 128 + SIGTERM},
        {"SIGTERM to the session", [&] { ::kill(session, SIGTERM); }, 128 + SIGTERM},
        {"SIGTERM to its guardian", [&] { ::kill(guardian, SIGTERM); }, 128 + SIGTERM},
        {"SIGKILL", [&] { vex->signal(SIGKILL); }, 128 + SIGKILL},
        {"SIGKILL to the session", [&] { ::kill(session, SIGKILL); }, 128 + SIGKILL},
        {"SIGKILL to its guardian", [&] { ::kill(guardian, SIGKILL); }, 128 + SIGKILL},
        {"SIGHUP without a terminal as input", [&] { vex->hangUp(); }, 128 + SIGHUP, false},
        {"the last console is killed, without a terminal as input", [] {}, 0, false},
    };
    for (const auto& way : ways) {
        SCOPED_TRACE(way.name);
        input = way.terminal ? std::nullopt : std::optional<std::string>("");
        const std::string path = begin(3);
        console = std::make_unique<Peer>(path);
        console->send(Command::CLIENT, "all", "run");
        console->awaitTheHang(3);
        const auto sleepers = consoles();
        ASSERT_EQ(sleepers.size(), 1u);
        guardian = childOf(vex->pid(), "vex");
        ASSERT_GT(session = sessionPid(), 0);
        way.end();
        if (way.terminal) {
            // A console that left before that would let the session go on.
            EXPECT_TRUE(eventually([&] { return ProcessTree::parentOf(session) == 0; }));
        }
        kill(sleepers);
        console.reset();
        EXPECT_EQ(vex->exitStatus(), way.status);
        expectNothingLeft(path);
    }
}

TEST_F(VexTest, StacksOfPythonProgramsAreTheirFunctions) {
    const std::string python = "/usr/bin/python3";
    if (::access(python.c_str(), X_OK) != 0) GTEST_SKIP() << "there is no " << python;
    const std::string text = "import threading, time\n"
                             "def wait(): threading.Event().wait()\n"
                             "def search(n):\n"
                             "    if n: return list(map(search, [n - 1]))\n"
                             "    print('searches', flush=True)\n"
                             "    while True: time.sleep(0.01)\n"
                             "threading.Thread(target=wait, daemon=True).start()\n"
                             "def deep(n): deep(n - 1) if n else wait()\n"
                             "threading.Thread(target=deep, args=[900], daemon=True).start()\n"
                             "search(1)\n";
    const std::string hosts = folder.write("hosts", "node1:2\n");
    Peer console(
        beginWith({"--launch", fakeSsh(), "--hosts", hosts, python, folder.write("go.py", text)}));
    console.send(Command::CLIENT, "all", "run");
    for (int told = 0; told < 2;)
        for (const std::string& line : console.next())
            told += line.find("searches") == line.npos ? 0 : line.starts_with("0:1") ? 2 : 1;
    console.send(Command::INTERRUPT, "all");
    console.finish();
    std::string shown;
    for (const std::string& line : console.command("vex stat"))
        shown += line + "\n";
    EXPECT_NE(shown.find("0:1 | <module> (go.py:10)\n0:1 |   search (go.py:4)\n"
                         "0:1 |     search (go.py:6)\n"),
              shown.npos)
        << shown;
    EXPECT_NE(shown.find("0:1 | wait (go.py:2)\n"), shown.npos) << shown;
    quit(console);
}

TEST_F(VexTest, AStartThatHangsCanBeGivenUp) {
    const std::string debugger = script("debugger", "#!/bin/sh\nsleep 1000\n");
    const std::string path = begin(3, {"--debugger", debugger});
    Peer console(path, true);
    vex->signal(SIGUSR1);
    EXPECT_TRUE(console.closed());
    vex->until("vex: the start was given up\n");
    expectEnd(1);
}

TEST_F(VexTest, DebuggersThatDieDuringTheStartAreReported) {
    const std::string debugger = script("debugger", "#!/bin/sh\necho my last words\n");
    const std::string path = begin(2, {"--debugger", debugger});
    vex->until("vex: 0:1 | my last words\n");
    vex->until("vex: 0:1 | the debugger ended during the start\n");
    expectEnd(1);
}

TEST_F(VexTest, SaysWhatIsWrongAndWhatToDo) {
    const std::string number = std::to_string(::getpid());

    const std::string text = folder.write("text", "no program");
    const struct {
        Lines arguments;
        const char* message;
    } cases[] = {
        {{}, "program"},
        {{"-n", "0", "true"}, "131072"},
        {{"-n", "2", "./nosuch"}, "cannot find the program './nosuch': No such file or directory"},
        {{"nosuch-program"}, "neither here nor in PATH"},
        {{text}, "chmod +x"},
        {{"--debugger", "lldb", script("script", "#!/bin/sh\n")},
         "is a script, which this debugger"},
        {{script("foreign", std::string("\177ELF\2\1\1\0\0\0\0\0\0\0\0\0\2\0\1\0", 20))},
         "another kind of processor"},
        {{folder.path()}, "is a directory"},
        {{"--debugger", "nosuch-debugger", "true"}, "apt-get install gdb"},
        {{"--debugger", "lldb-nosuch", "true"}, "apt-get install lldb"},
        {{"--console", "/nosuch", "true"}, "cannot find the console program '/nosuch'"},
        {{"--attach", number + "," + number}, "is named twice"},
        {{"--attach", number, "true"}, "No program can be given"},
        {{"--attach", number, "-n", "2"}, "--attach"},
        {{"--attach", number + ",x"}, "x"},
        {{"--attach", "4194304"}, "there is no such process"},
        {{"--attach", "1"}, "it belongs to root, as which vex does not run."},
        {{"--attach-config", "/nosuch"}, "/nosuch"},
    };
    for (const auto& each : cases) {
        launch(each.arguments);
        EXPECT_NE(vex->exitStatus(), 0) << each.message;
        EXPECT_NE(vex->screen().find(each.message), std::string::npos) << each.message << "\n"
                                                                       << vex->screen();
    }
    launch({"--version"});
    EXPECT_EQ(vex->exitStatus(), 0) << vex->screen();
    EXPECT_EQ(vex->screen(), "vex " VEX_VERSION "\n");
}

} // namespace

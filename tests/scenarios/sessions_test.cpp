// What becomes of a session when its consoles come and go: vex, its consoles on terminals, and real
// debuggers.
#include "tests/support/vextest.h"

class Sessions : public VexTest {
  protected:
    using Console = std::unique_ptr<Terminal>;
    using Time = std::chrono::steady_clock;
    std::string number;
    Time::time_point begun, prompted;

    void TearDown() override {
        // A test that failed leaves its session behind.
        for (const pid_t id : living())
            ::kill(id, SIGKILL);
    }
    Console run(const Lines& argv, std::optional<std::string> typed = std::nullopt) const {
        const std::string home = folder.path();
        return std::make_unique<Terminal>(Terminal::Start{
            argv,
            {{"HOME", home}, {"TERM", "xterm"}, {"LC_ALL", "C"}, {"VEX_TEST", home}},
            std::move(typed)});
    }
    // A session of two tasks, at its prompt.
    Console begin() {
        begun = Time::now();
        Console first = run({program("vex"), "-n", "2", program("halo")});
        prompt(*first);
        prompted = Time::now();
        answer(*first, "option session", "current session number is ");
        number = first->until(".\n");
        socketTime = timeOf("/tmp/.vexsock." + number);
        prompt(*first);
        return first;
    }
    Console join() const {
        Console console = run({program("vex"), "--join", number});
        prompt(*console);
        return console;
    }
    static void prompt(Terminal& at) {
        at.until("(all) ");
        at.untilEcho(false);
    }
    static void answer(Terminal& at, const std::string& line, const std::string& expected) {
        at.type(line + "\n");
        at.until(line + "\n");
        at.until(expected);
    }
    static void leave(Terminal& at, const std::string& how) {
        answer(at, how, "(y/n) ");
        at.untilEcho(false);
        at.type("y\n");
    }
    static void expectStatus(Terminal& at, int status, const std::string& said = "") {
        if (!said.empty()) at.until("vex: " + said);
        EXPECT_EQ(at.exitStatus(), status);
    }
    // Of this session in the list: "2 tasks, 1 consoles"; the list when it is not there.
    std::string listed() const {
        const auto seconds = [](Time::duration span) { return span / std::chrono::seconds(1); };
        const auto youngest = seconds(Time::now() - prompted);
        auto list = run({program("vex"), "--list"});
        expectStatus(*list, 0);
        std::istringstream text(list->screen());
        for (std::string line; std::getline(text, line);) {
            std::string session, tasks, consoles, unit;
            long age = 0;
            std::istringstream(line) >> session >> tasks >> consoles >> age >> unit;
            if (session != number || !line.ends_with(" " + program("halo"))) continue;
            if (unit == "s") {
                EXPECT_GE(age, youngest);
                EXPECT_LE(age, seconds(Time::now() - begun));
            }
            return tasks + " tasks, " + consoles + " consoles";
        }
        return "";
    }
};

TEST_F(Sessions, ExitListJoinHangUpAndKquit) {
    auto first = begin();
    answer(*first, "print 10 + 1", "| $1 = 11");
    prompt(*first);
    EXPECT_EQ(listed(), "2 tasks, 1 consoles");

    // Another console comes and goes; the last one goes by exit.
    const std::string goesOn = "session " + number + " goes on with",
                      back = "; come back with: vex --join " + number + "\n";
    auto second = join();
    EXPECT_EQ(listed(), "2 tasks, 2 consoles");
    leave(*second, "exit");
    expectStatus(*second, 0, goesOn + " another console" + back);
    leave(*first, "exit");
    expectStatus(*first, 0, goesOn + "out a console" + back);
    EXPECT_EQ(listed(), "2 tasks, 0 consoles");

    // What the debuggers had is there still; then the window is closed.
    first = join();
    answer(*first, "print $ + 1", "| $2 = 12");
    prompt(*first);
    first->hangUp();
    expectStatus(*first, 128 + SIGHUP);
    EXPECT_EQ(listed(), "2 tasks, 0 consoles");

    // A script comes and goes; killing the foreground of a console that joined ends that alone.
    auto script = run({program("vex"), "--join", number}, "print $ + 1\n");
    script->until("| $3 = 13");
    expectStatus(*script, 0);
    first = join();
    first->signal(SIGKILL);
    first->exitStatus();

    // A window is closed while the job runs on: the session is kept whole, and the terminal that is
    // gone is not written to. It grows old enough to show.
    first = join();
    answer(*first, "run", "still waits");
    first->hangUp();
    expectStatus(*first, 128 + SIGHUP);
    sleepFor(1000);
    EXPECT_EQ(listed(), "2 tasks, 0 consoles");

    first = join();
    second = join();
    leave(*second, "kquit");
    expectStatus(*second, 0, "session " + number + " has ended\n");
    expectStatus(*first, 0);
    expectNothingLeft("/tmp/.vexsock." + number);

    auto lost = run({program("vex"), "--join", "99998"});
    expectStatus(*lost, 1, "you have no session 99998; vex --list shows those that you have.\n");
}

TEST_F(Sessions, CtrlCAndInterruptStopTasksThatRunOn) {
    auto console = begin();
    answer(*console, "run", "still waits");
    console->type("\x03");
    console->until("(all:int) ");
    console->untilEcho(false);
    answer(*console, "where", "3917-503");
    console->until("(all:int) ");
    // A debugger on a busy machine may drop the interrupt: a user tries again.
    EXPECT_TRUE(eventually([&] {
        console->untilEcho(false);
        answer(*console, "interrupt", "(all");
        return console->until(") ") != ":int";
    }));
    console->untilEcho(false);
    answer(*console, "match SIGINT", "received signal SIGINT");
    prompt(*console);
    answer(*console, "where", "relax ()");
    prompt(*console);
    leave(*console, "kquit");
    expectStatus(*console, 0);
}

TEST_F(Sessions, CtrlZGivesTheShellItsTerminalUntilFg) {
    const Console console = std::make_unique<Terminal>(Terminal::Start{{"sh", "-i"},
                                                                       {{"HOME", folder.path()},
                                                                        {"TERM", "xterm"},
                                                                        {"LC_ALL", "C"},
                                                                        {"PS1", "shell> "},
                                                                        {"ENV", ""}}});
    console->until("shell> ");
    console->type(program("vex") + " -n 1 " + program("halo") + "\n");
    prompt(*console);
    // Several times: were the terminal given back too late, it would not always show.
    for (int round = 0; round < 8; ++round) {
        console->type("pri");
        console->until("pri");
        console->type("\x1a");
        console->until("Stopped");
        console->until("shell> ");
        EXPECT_TRUE(console->isRestored()) << round;
        console->type("fg\n");
        console->untilEcho(false);
        answer(*console, "nt rank", " = 0"); // the line goes on
        prompt(*console);
    }
    leave(*console, "kquit");
    console->until("has ended");
    console->until("shell> ");
    console->type("exit\n");
    EXPECT_EQ(console->exitStatus(), 0);
}

// The exit status tells whether all of the script was carried out, and standard error what was not.
TEST_F(Sessions, AScriptIsJudged) {
    const struct {
        const char *script, *shown, *said;
        int status;
    } cases[] = {
        // The last line lacks its newline; that the program crashes is no error of the debugger.
        {"break simulate\nbreak write\nrun\ncontinue\nsignal SIGSEGV\nprint 6 * 7", "| $1 = 42", "",
         0},
        {"break not_loaded_yet\ngroup odd = 1\non odd\nprint 5", "1 | $1 = 5", "", 0},
        {"print 1\nprint nosuch\n", "No symbol \"nosuch\"",
         "vex: 2 errors were reported by the debuggers of 0:1\n", 3},
        {"on nowhere\n", "3917-511", "vex: 1 command of the script was refused\n", 3},
        {"s\noption frobnicate\n", "3917-501", "vex: 2 lines of the script had mistakes\n", 3},
        {"on 1\nshell kill -9 $PPID\n", "Client 1 was terminated", "by the debuggers of 1\n", 3},
        {"script false\n", "the script ended with status 1", "vex: scripts failed of 0:1\n", 3},
        {"quit\n\n", "3917-803", "", 0},
        {"kquit\ny\nnever read\n", "(y/n) y", "", 0},
        {"quit\nprint 1\n", "(all) quit", "vex: ", 3},
    };
    const std::string output = folder.path("output");
    for (const auto& [text, shown, said, status] : cases) {
        SCOPED_TRACE(text);
        vex = run({"/bin/sh", "-c",
                   program("vex") + " -n 2 --script " + folder.write("script", text) + " " +
                       program("halo") + " >" + output});
        EXPECT_EQ(vex->exitStatus(), status);
        EXPECT_NE(vex->screen().find(said), std::string::npos) << vex->screen();
        EXPECT_EQ(vex->screen().empty(), status == 0) << vex->screen();
        const std::string report = folder.read("output");
        EXPECT_NE(report.find(shown), std::string::npos) << report;
        EXPECT_EQ(report.find('\x1b'), std::string::npos) << report;
    }
    auto lost = run({program("vex"), "--script", folder.path("nosuch"), program("halo")});
    expectStatus(*lost, 1, "cannot read the script '" + folder.path("nosuch") + "': No such file");
    expectNothingLeft("");
}

TEST_F(Sessions, EndsWhenNobodyReadsItsOutputAnyMore) {
    const std::string endless =
        folder.write("script", "python exec(\"while True: print('x' * 1000)\")\nprint 1\n");
    vex = run({"/bin/sh", "-c",
               program("vex") + " -n 1 --script " + endless + " " + program("halo") +
                   " | head -n 2 | wc -l"});
    EXPECT_EQ(vex->exitStatus(), 0);
    EXPECT_EQ(vex->screen(), "2\n");
    expectNothingLeft("");
}

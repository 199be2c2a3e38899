// What becomes of a session when its consoles come and go: vex, its consoles on terminals, and real
// debuggers.
#include "tests/support/processes.h"
#include "tests/support/session.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <thread>

class Sessions : public testing::Test {
  protected:
    void SetUp() override {
        if (::getuid() == 0) GTEST_SKIP() << "run the scenarios as an ordinary user";
    }
    void TearDown() override {
        // A test that failed leaves its session behind.
        for (const pid_t id : living())
            ::kill(id, SIGKILL);
    }

    TempDir home;

    static std::string program(const std::string& name) {
        return std::string(VEX_BIN_DIR) + "/" + name;
    }
    std::unique_ptr<Terminal> run(std::vector<std::string> arguments,
                                  std::optional<std::string> input = std::nullopt) const {
        arguments.insert(arguments.begin(), program("vex"));
        return runProgram(std::move(arguments), std::move(input));
    }
    std::unique_ptr<Terminal> runProgram(std::vector<std::string> argv,
                                         std::optional<std::string> input = std::nullopt) const {
        Terminal::Start start;
        start.argv = std::move(argv);
        start.environment = {{"HOME", home.path()},
                             {"TERM", "xterm"},
                             {"LC_ALL", "C"},
                             {"VEX_SESSIONS_TEST", home.path()}};
        start.input = std::move(input);
        return std::make_unique<Terminal>(start);
    }
    // A session of two tasks, at its prompt.
    std::unique_ptr<Terminal> begin() {
        auto vex = run({"-n", "2", program("halo")});
        prompt(*vex);
        answer(*vex, "option session", "current session number is ");
        number = vex->until(".\n");
        socketTime = timeOf("/tmp/.vexsock." + number);
        prompt(*vex);
        return vex;
    }
    std::string number;
    long long socketTime = 0;

    // When a file was made or changed last, in ns; 0: there is none.
    static long long timeOf(const std::string& path) {
        struct stat status {};
        if (::stat(path.c_str(), &status) == -1) return 0;
        return status.st_ctim.tv_sec * 1000000000LL + status.st_ctim.tv_nsec;
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
    std::unique_ptr<Terminal> join() {
        auto console = run({"--join", number});
        prompt(*console);
        return console;
    }
    // The line of this session in the list: "1 4 0 /path/halo", without its age; empty when it is
    // not there.
    std::string listed() const {
        auto list = run({"--list"});
        EXPECT_EQ(list->exitStatus(), 0);
        std::istringstream text(list->screen());
        for (std::string line; std::getline(text, line);) {
            std::istringstream words(line);
            std::string session, tasks, consoles, age, unit, name;
            words >> session >> tasks >> consoles >> age >> unit >> name;
            if (session == number) return tasks + " " + consoles + " " + name;
        }
        return "";
    }
    std::vector<pid_t> living() const {
        return Processes::startedWith("VEX_SESSIONS_TEST=" + home.path());
    }
    void expectNothingLeft() const {
        const Deadline deadline;
        while (!living().empty() && deadline.left() > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_TRUE(living().empty());
        // The number may be another session's by now.
        if (!number.empty()) {
            EXPECT_NE(timeOf("/tmp/.vexsock." + number), socketTime);
        }
    }
};

TEST_F(Sessions, ExitListJoinHangUpAndKquit) {
    auto first = begin();
    answer(*first, "print 10 + 1", "| $1 = 11");
    prompt(*first);
    EXPECT_EQ(listed(), "2 1 " + program("halo"));

    // Another console comes and goes; the last one goes by exit.
    auto second = join();
    EXPECT_EQ(listed(), "2 2 " + program("halo"));
    leave(*second, "exit");
    second->until("vex: session " + number +
                  " goes on with another console; come back with: vex --join " + number + "\n");
    EXPECT_EQ(second->exitStatus(), 0);
    leave(*first, "exit");
    first->until("vex: session " + number +
                 " goes on without a console; come back with: vex --join " + number + "\n");
    EXPECT_EQ(first->exitStatus(), 0);
    EXPECT_EQ(listed(), "2 0 " + program("halo"));

    // What the debuggers had is there still; then the window is closed.
    first = join();
    answer(*first, "print $ + 1", "| $2 = 12");
    prompt(*first);
    first->hangUp();
    EXPECT_EQ(first->exitStatus(), 128 + SIGHUP);
    EXPECT_EQ(listed(), "2 0 " + program("halo"));

    // A script comes and goes; killing the front part of a console that joined ends that alone.
    auto script = run({"--join", number}, "print $ + 1\n");
    script->until("| $3 = 13");
    EXPECT_EQ(script->exitStatus(), 0);
    first = join();
    first->signal(SIGKILL);
    first->exitStatus();

    first = join();
    second = join();
    leave(*second, "kquit");
    second->until("vex: session " + number + " has ended\n");
    EXPECT_EQ(second->exitStatus(), 0);
    EXPECT_EQ(first->exitStatus(), 0);
    expectNothingLeft();

    auto lost = run({"--join", "99998"});
    lost->until("vex: you have no session 99998; vex --list shows those that you have.\n");
    EXPECT_EQ(lost->exitStatus(), 1);
}

TEST_F(Sessions, AClosedWindowIsAnExit) {
    auto first = begin();
    answer(*first, "run", "still waits");
    first->hangUp();
    EXPECT_EQ(first->exitStatus(), 128 + SIGHUP);
    // It is kept whole: the terminal that is gone is not written to.
    EXPECT_EQ(listed(), "2 0 " + program("halo"));
    first = join();
    leave(*first, "kquit");
    EXPECT_EQ(first->exitStatus(), 0);
    expectNothingLeft();
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
        {"quit\n\n", "3917-803", "", 0},
        {"kquit\ny\nnever read\n", "(y/n) y", "", 0},
        {"quit\nprint 1\n", "(all) quit", "vex: ", 3},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.script);
        const std::string output = home.path("output");
        const std::string command = program("vex") + " -n 2 --script " +
                                    home.write("script", each.script) + " " + program("halo") +
                                    " >" + output;
        auto vex = runProgram({"/bin/sh", "-c", command});
        EXPECT_EQ(vex->exitStatus(), each.status);
        EXPECT_NE(vex->screen().find(each.said), std::string::npos) << vex->screen();
        EXPECT_EQ(vex->screen().empty(), each.status == 0) << vex->screen();
        const std::string text = home.read("output");
        EXPECT_NE(text.find(each.shown), std::string::npos) << text;
        EXPECT_EQ(text.find('\x1b'), std::string::npos) << text;
    }
    auto lost = run({"--script", home.path("nosuch"), program("halo")});
    lost->until("vex: cannot read the script '" + home.path("nosuch") + "': No such file");
    EXPECT_EQ(lost->exitStatus(), 1);
    expectNothingLeft();
}

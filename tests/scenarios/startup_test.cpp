// From the command line to the first prompt, and the ways in which that goes wrong.
#include "backend/os/processtree.h"
#include "tests/support/session.h"

class Startup : public Session {
  protected:
    // The number of a session that nobody serves.
    const std::string nobodys = std::to_string(frontEnd.session() + 1);

    // A console that connects to nobody gets a Ctrl-C, a second one later if that has not shown:
    // the thread sanitizer can lose one that comes while it looks at those it has put off. The
    // console ignores SIGXFSZ once its own handler for Ctrl-C is in place.
    template <typename Condition>
    void interruptConnecting(const std::vector<std::string>& arguments, Condition&& shown) {
        start("vexconsole", arguments);
        const std::string mark = "SigIgn:\t";
        ASSERT_TRUE(eventually([&] {
            const std::string status = ProcessTree::fileOf(console->pid(), "status");
            const std::string set = status.substr(status.find(mark) + mark.size());
            return (std::stoull(set, nullptr, 16) >> (SIGXFSZ - 1) & 1) == 1;
        }));
        EXPECT_TRUE(eventually([&] {
            console->signal(SIGINT);
            return shown();
        }));
    }
    std::string output() {
        expectEnd();
        const std::string &shown = console->screen(), wraparound = "\x1b[?7h\x1b[?45h";
        return shown.starts_with(wraparound) ? shown.substr(wraparound.size()) : shown;
    }
};

TEST_F(Startup, MistakesInTheCommandLine) {
    const std::string noSession = "152 3917-152  '%' requires <session number> after -s.\n\n";
    const std::pair<std::vector<std::string>, std::string> mistakes[] = {
        {{"-s", "x"}, noSession},
        {{"-s"}, noSession},
        // A number that does not fit is nobody else's session.
        {{"-s", "100000"}, noSession},
        {{"-s", "4294967297"}, noSession},
        {{"-q"}, "151 3917-151  '%' does not recognize option '-q'.\n\n"},
        {{"word"}, "153 3917-153  Extra argument 'word' to '%'.\n\n"},
    };
    for (auto [arguments, shown] : mistakes) {
        start("vexconsole", arguments);
        shown.replace(shown.find('%'), 1, program("vexconsole"));
        EXPECT_EQ(output(), "ERROR: " + shown);
    }
    start("vexconsole", {"-h"});
    EXPECT_TRUE(
        output().starts_with("Usage: " + program("vexconsole") +
                             "\nOptional:\n"
                             "  -s <session number>\t-- Which debug session to connect to.\n"));
}

TEST_F(Startup, NobodyListens) {
    const pid_t gone = ::fork();
    if (gone == 0) ::_exit(0);
    ::waitpid(gone, nullptr, 0);
    // A front end that is gone is not waited for.
    for (const auto& [timeout, pid] : {std::pair{"1", ::getpid()}, {"600", gone}}) {
        environment["VEX_CONSOLE_TIMEOUT"] = timeout;
        start("vexconsole", {"-s", nobodys, "-b", std::to_string(pid)});
        EXPECT_EQ(output(), "ERROR: 120 3917-120  Connection time-out after 1 seconds.\n\n");
    }
    environment["VEX_CONSOLE_TIMEOUT"] = "-5";
    start("vexconsole", {"-s", nobodys});
    EXPECT_EQ(output(), "ERROR: \"VEX_CONSOLE_TIMEOUT\"(-5) should be positive value.\n");
}

TEST_F(Startup, TheFrontEndRefusesOneConsoleMoreOrCloses) {
    launch();
    frontEnd.accept(-1);
    EXPECT_EQ(output(),
              "ERROR: 221 3917-221  The VEX front end has reached its connection limit. \n\n");
    launch();
    frontEnd.connected();
    frontEnd.close();
    EXPECT_EQ(output(), "3917-801  The connection terminated.\n\n");
}

TEST_F(Startup, CtrlCWhileConnectingAsksTheFrontEndToStopOrEndsTheConsole) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
    interruptConnecting({"-s", nobodys, "-b", std::to_string(::getpid())}, [&set] {
        const timespec limit{1, 0};
        return ::sigtimedwait(&set, nullptr, &limit) == SIGUSR1;
    });
    EXPECT_TRUE(console->running());
    interruptConnecting({"-s", nobodys}, [this] {
        const Deadline end{std::chrono::milliseconds(1000)};
        while (console->running() && end.left() > 0)
            sleepFor(2);
        return !console->running();
    });
    EXPECT_EQ(console->exitStatus(), 1);
}

TEST_F(Startup, TheSettingsDirectoryIsPrivateAndOneThatCannotBeUsedStopsNothing) {
    const mode_t mask = ::umask(0777);
    launch();
    ::umask(mask);
    frontEnd.accept(id);
    prompt("(all) ");
    EXPECT_EQ(std::filesystem::status(home.path(".vex")).permissions(),
              std::filesystem::perms::owner_all);
    command("where");
    finish();
    EXPECT_EQ(home.read(".vex/history"), "where\n");
    frontEnd.close();
    expectEnd();
    environment["HOME"] = "/proc/nowhere";
    launch();
    frontEnd.accept(id);
    EXPECT_EQ(prompt("(all) "), "\x1b[?7h\x1b[?45hCreating configuration directory failed.\n");
    EXPECT_EQ(answerTo("history"), "");
}

TEST_F(Startup, SettingsThatOthersMayWriteAndWhatIsNoFileAreLeftAlone) {
    const std::string folder = home.path(".vex"), conf = home.path(".vex/conf");
    const auto lineFor = [](const std::string& path) {
        return path + " is ignored: it belongs to another user, or everybody may write to it.\n";
    };
    const auto expectStart = [&](const std::string& said) {
        launch();
        frontEnd.accept(id);
        EXPECT_EQ(prompt("(all) "), "\x1b[?7h\x1b[?45h" + said);
        EXPECT_EQ(answerTo("history") + answerTo("option ecolor"), "current color is green.\n");
        frontEnd.close();
        expectEnd();
    };
    std::filesystem::create_directory(folder);
    home.write(".vex/conf", "ecolor=red\n");
    ::mkfifo(home.path(".vex/history").c_str(), 0600);
    ::chmod(conf.c_str(), 0666);
    expectStart(lineFor(conf));
    std::filesystem::remove(conf);
    ::mkfifo(conf.c_str(), 0600);
    expectStart("");
    ::chmod(folder.c_str(), 0777);
    expectStart(lineFor(folder));
}

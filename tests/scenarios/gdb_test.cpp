// The whole of it: vex, its console on a terminal, and real debuggers on the example program.
#include "tests/support/session.h"

#include <regex.h>

namespace {

std::string withoutColours(std::string text) {
    for (std::size_t at; (at = text.find('\x1b')) != std::string::npos;)
        text.erase(at, text.find('m', at) + 1 - at);
    return text;
}

// Not by the standard library's expressions: g++ 12 warns of those under AddressSanitizer.
bool matches(const std::string& text, const std::string& expression) {
    regex_t compiled;
    if (::regcomp(&compiled, ("^" + expression + "$").c_str(), REG_EXTENDED | REG_NOSUB) != 0)
        return false;
    const bool found = ::regexec(&compiled, text.c_str(), 0, nullptr, 0) == 0;
    ::regfree(&compiled);
    return found;
}

} // namespace

class RealDebuggers : public Session {
  protected:
    void begin() {
        start("vex", {"-n", "3", program("halo")});
        prompt("(all) ");
    }
    // A client that is late on a busy machine has its lines shown by themselves: ask again. The
    // expression is that of the lines without their colours.
    void collapsedAnswer(const std::string& line, const std::string& expression) {
        const Deadline deadline;
        std::string shown;
        do
            shown = withoutColours(answerTo(line));
        while (!matches(shown, expression) && deadline.left() > 0);
        EXPECT_TRUE(matches(shown, expression)) << shown;
    }
    void kquit() {
        answerTo("kquit", "(y/n) ");
        console->type("y\n");
        EXPECT_EQ(console->exitStatus(), 0);
    }
};

TEST_F(RealDebuggers, ASessionOfThreeClients) {
    begin();
    EXPECT_NE(answerTo("break simulate").find("Breakpoint 1 at 0x"), std::string::npos);
    EXPECT_NE(answerTo("run").find("Breakpoint 1, simulate (stray=1, crashing=-1) at "),
              std::string::npos);
    collapsedAnswer("where", "0:2 \\| #0  simulate \\(stray=1, crashing=-1\\) at [^\n]*\n0:2 \\| "
                             "#1  [^\n]* in main \\([^\n]*\n");
    // Each its own rank, each in a line of its own.
    const std::string ranks = "printf \"rank %d\\n\", rank";
    collapsedAnswer(ranks, "0 \\| rank 0\n1 \\| rank 1\n2 \\| rank 2\n");
    EXPECT_EQ(answerTo("group odd = 1"), "");
    EXPECT_EQ(answerTo("on odd", "(odd) "), "");
    EXPECT_EQ(answerTo(ranks, "(odd) "), green + "1 | rank 1" + eol);
    EXPECT_EQ(answerTo("on nowhere", "(odd) "), "3917-511  Group not found.\n");
    // A debugger that is killed is announced, and its group goes with it.
    console->type("shell kill -9 $PPID\n");
    console->until("Client 1 was terminated\n");
    prompt("(all) ");
    collapsedAnswer("echo here\\n", "0 2 \\| here\n");
    kquit();
}

TEST_F(RealDebuggers, CtrlCAndInterruptStopTasksThatRunOn) {
    begin();
    enter("run");
    console->until("still waits");
    console->type("\x03");
    prompt("(all:int) ");
    EXPECT_NE(answerTo("where", "(all:int) ").find("3917-503"), std::string::npos);
    // A debugger on a busy machine may drop the interrupt: a user tries again.
    const Deadline deadline;
    do {
        enter("interrupt");
        console->until("(all");
    } while (console->until(") ") == ":int" && deadline.left() > 0);
    console->untilEcho(false);
    EXPECT_NE(answerTo("match SIGINT").find("received signal SIGINT"), std::string::npos);
    const std::string where = answerTo("where");
    EXPECT_NE(where.find("relax ()"), std::string::npos) << where;
    kquit();
}

TEST_F(RealDebuggers, CtrlZGivesTheShellItsTerminalUntilFg) {
    console = std::make_unique<Terminal>(Terminal::Start{{"sh", "-i"},
                                                         {{"HOME", home.path()},
                                                          {"TERM", "xterm"},
                                                          {"LC_ALL", "C"},
                                                          {"PS1", "shell> "},
                                                          {"ENV", ""}}});
    console->until("shell> ");
    enter(program("vex") + " -n 1 " + program("halo"));
    prompt("(all) ");
    // Several times: were the terminal given back too late, it would not always show.
    for (int round = 0; round < 8; ++round) {
        console->type("pri");
        console->until("pri");
        console->type("\x1a");
        console->until("Stopped");
        console->until("shell> ");
        const termios now = console->settings(), then = console->initialSettings();
        EXPECT_EQ(std::memcmp(&now, &then, sizeof now), 0) << round;
        enter("fg");
        console->untilEcho(false);
        EXPECT_NE(answerTo("nt rank").find(" = 0"), std::string::npos); // the line goes on
    }
    answerTo("kquit", "(y/n) ");
    console->type("y\n");
    console->until("has ended\n");
    console->until("shell> ");
    console->type("exit\n");
    EXPECT_EQ(console->exitStatus(), 0);
}

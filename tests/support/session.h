#pragma once

#include "tests/support/scriptedfrontend.h"
#include "tests/support/tempdir.h"
#include "tests/support/terminal.h"
#include "tests/support/testing.h"

using namespace Colour;

/// A real vexconsole on a terminal, with a scripted front end at the other end of its socket. The
/// settings and the history live in a home of the session's own.
class Session : public UserTest {
  protected:
    /// The id that the console gets.
    static constexpr int id = 7;

    TempDir home;
    ScriptedFrontEnd frontEnd;
    std::unique_ptr<Terminal> console;
    /// Set by a scenario before it starts the console.
    std::map<std::string, std::string> environment;
    std::vector<std::string> options;
    std::vector<int> ignored;

    /// Starts a program as the console, without waiting for anything; input takes the terminal's
    /// place as standard input.
    void start(const std::string& name, const std::vector<std::string>& arguments,
               std::optional<std::string> input = std::nullopt) {
        Terminal::Start start{{program(name)}, environment, std::move(input), ignored};
        start.argv.insert(start.argv.end(), arguments.begin(), arguments.end());
        start.environment.insert({{"HOME", home.path()}, {"TERM", "xterm"}, {"LC_ALL", "C"}});
        for (const char* own : {"VEX_HISTORY_LINES", "VEX_CONSOLE_TIMEOUT", "VEX_DEBUG_TIMEOUT"})
            start.environment.try_emplace(own, "");
        frontEnd.watch(-1, nullptr);
        console = std::make_unique<Terminal>(start);
        frontEnd.watch(console->fd(), [this] { console->screen(); });
    }
    /// Starts the console for the scripted front end.
    void launch(std::optional<std::string> input = std::nullopt) {
        std::vector<std::string> arguments = options;
        arguments.insert(arguments.end(), {"-s", std::to_string(frontEnd.session())});
        start("vexconsole", arguments, std::move(input));
    }

    /// Starts the console and waits until it stands at its prompt.
    void begin() {
        launch();
        frontEnd.accept(id);
        EXPECT_EQ(prompt("(all) "), "\x1b[?7h\x1b[?45h");
    }

    /// Waits until the console reads a line at this prompt; what it printed before it.
    std::string prompt(const std::string& text) {
        std::string before = console->until(text);
        console->untilEcho(false);
        return before;
    }

    /// Types a line and waits for its echo.
    void enter(const std::string& line) {
        console->type(line + "\n");
        console->until(line + "\n");
    }
    /// Types a line at a prompt and gives what the console prints until the next one.
    std::string answerTo(const std::string& line, const std::string& next = "(all) ") {
        enter(line);
        return prompt(next);
    }

    /// Types a line and waits until the front end has what it makes of it, with
    /// this text.
    template <class... Text>
    auto ask(const std::string& line, Command::Type type, const Text&... text) {
        enter(line);
        return frontEnd.expectCommand(type, text...);
    }
    /// The same for a client command.
    void command(const std::string& line) { ask(line, Command::CLIENT, line); }
    /// The end of a command at both ends; what the console printed before its prompt.
    std::string finish() {
        frontEnd.finish(id);
        return prompt("(all) ");
    }

    /// A command that runs on, and Ctrl-C.
    void interrupted(const std::string& next = "(all:int) ") {
        command("run");
        console->signal(SIGINT);
        prompt(next);
    }
    /// Waits for the program's end and compares the terminal with what the program found.
    void expectEnd(int status = 0) {
        EXPECT_EQ(console->exitStatus(), status);
        EXPECT_TRUE(console->isRestored());
    }
};

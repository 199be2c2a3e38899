#pragma once

#include "tests/support/testing.h"

#include <termios.h>

/// The bytes that colour a line and end it.
namespace Colour {
const std::string green = "\x1b[1;32m", darkgreen = "\x1b[2;32m", red = "\x1b[1;31m",
                  white = "\x1b[1;37m", reset = "\x1b[00m", eol = reset + "\n";
}

/// A program on a pseudo-terminal of its own, as a person would have it before them.
///
/// Every wait has a deadline and throws std::runtime_error with all that the screen showed so far.
/// Line ends are given back as "\n". The destructor kills and reaps the program. One thread only.
class Terminal {
  public:
    struct Start {
        std::vector<std::string> argv;
        /// Set on top of this process's environment; an empty value removes the variable.
        std::map<std::string, std::string> environment = {};
        /// The program's standard input when it is not the terminal: a script, whole.
        std::optional<std::string> input = std::nullopt;
        /// The signals that the program finds ignored, as nohup would have it.
        std::vector<int> ignored = {};
    };

    explicit Terminal(const Start& start);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// Presses keys; send a newline to end a line.
    void type(const std::string& keys);
    void signal(int number) {
        if (!status) ::kill(child, number);
    }
    /// Closes the terminal's window.
    void hangUp();

    /// Waits until the text appears behind what was waited for before, and gives back all that
    /// stands between: the next wait starts behind it.
    std::string until(const std::string& text);
    /// Waits until the terminal echoes what is typed, or until it does not: a program that edits
    /// its lines itself has then begun to read one.
    void untilEcho(bool on);
    /// Waits for the program's end: its exit status, or 128 and the number of the signal that
    /// killed it. The output is complete then.
    int exitStatus();
    bool running();

    /// All output so far; reads what is there already.
    const std::string& screen();
    /// The terminal's settings, also after the program's end.
    termios settings() const;
    /// The settings that the program found.
    const termios& initialSettings() const { return initial; }
    /// Whether the settings are those that the program found.
    bool isRestored() const;
    pid_t pid() const { return child; }
    /// Readable when there is more to see; -1 after hangUp.
    int fd() const { return master; }

    /// Text with its control characters made visible, for messages.
    static std::string visible(const std::string& text);

  private:
    int master = -1;
    int slave = -1; // kept open: the settings outlive the program, and reads do not fail
    int pidfd = -1;
    pid_t child = -1;
    termios initial{};
    std::optional<int> status;
    std::string output;
    std::size_t mark = 0; // the end of what was waited for

    bool readSome(int timeout);
    void reap();
    [[noreturn]] void fail(const std::string& expected);
};

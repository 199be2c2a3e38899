#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// What the front end must know about one kind of debugger; another debugger is another subclass.
/// Knows texts only and does no I/O.
class Driver {
  public:
    /// What one debugger is started with.
    struct Launch {
        /// The running process to attach to, as its command line names it; empty: it starts the
        /// program.
        std::string attach;
        /// That process ends with the debugger, as a program does that it started.
        bool owned = false;
        /// The program to debug and its arguments; empty when it attaches.
        std::vector<std::string> program;
        /// Nonce of this client: letters and digits.
        std::string nonce;
        /// The terminal that the debugger itself runs on.
        std::string terminal;
        /// The terminal that the program reads from.
        std::string inputTerminal;
        /// What it shall print once at its start and behind the message of each error, before the
        /// prompt: letters, digits and control bytes. Empty: nothing.
        std::string errorMark;
    };

    /// What a line of a backtrace of all threads says.
    struct StackLine {
        enum Kind { OTHER, THREAD, CALL } kind = OTHER;
        /// Of a call: its bare name, without arguments and parameter types.
        std::string function;
        /// Of a call: "file:line", or the library; empty when the debugger does not know.
        std::string place;
    };

    virtual ~Driver() = default;

    /// What scripts are told that it is.
    virtual std::string name() const = 0;

    /// The command line that starts it.
    virtual std::vector<std::string> argv(const Launch& launch) const = 0;
    /// The prompt that it then shows, byte for byte.
    virtual std::string prompt(const std::string& nonce) const = 0;
    /// The line with nothing at its end that makes the debugger wait for another one.
    virtual std::string whole(std::string line) const = 0;
    /// Whether output that ends like this waits for an answer (a secondary prompt).
    virtual bool asks(std::string_view tail) const = 0;
    /// The line that it prints when an interrupt finds it idle.
    virtual std::string interruptEcho() const = 0;
    /// Whether this line shows that an interrupt was taken.
    virtual bool showsInterrupt(std::string_view line) const = 0;
    /// What it prints in front of the process id of a child that the program has forked and that
    /// it does not debug; empty: it prints nothing of the kind.
    virtual std::string forkMark() const = 0;
    /// Whether it can print an error mark.
    virtual bool marksErrors() const { return false; }
    /// Whether this line is the message of an error, for a debugger that prints no marks.
    virtual bool reportsError(std::string_view) const { return false; }
    /// Whether this line of the start-up is of no interest to the user.
    virtual bool isGreeting(std::string_view line) const = 0;
    /// What to do about a line of the start-up; empty: nothing is known.
    virtual std::string hintFor(std::string_view) const { return ""; }
    /// Whether this command line takes bars as its own, a pipe of the debugger, say.
    virtual bool keepsBars(std::string_view line) const = 0;
    /// The command that prints the stacks of all threads, at most so many calls of each.
    virtual std::string backtraceCommand(int calls) const = 0;
    virtual StackLine parseStackLine(std::string_view line) const = 0;

  protected:
    /// The bare name of a call as debuggers print it: without its arguments and parameter types.
    static std::string functionName(std::string_view call);
};

/// The driver for an executable: lldb when its name begins so, else gdb.
std::unique_ptr<Driver> makeDriver(const std::string& executable);

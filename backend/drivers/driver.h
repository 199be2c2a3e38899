#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The dialect of one kind of debugger: its command line, its prompts, and what its lines mean.
/// Another kind is another subclass. Knows texts only and does no I/O.
class Driver {
  public:
    /// What debuggers look at: a program that they start, a process that they attach to, or what a
    /// process has left.
    enum class Subject { PROGRAM, PROCESS, CORE };

    /// What one debugger is started with.
    struct Launch {
        /// The running process to attach to, as the command line names it; empty: the debugger
        /// starts the program.
        std::string attach;
        /// Whether that process ends with the debugger, as a program that it has started does.
        bool owned = false;
        /// The program to debug and its arguments; empty when it attaches.
        std::vector<std::string> program;
        /// The program by which the program is started, which is a script or starts another one;
        /// the first of these that can be debugged becomes the task. Empty: none.
        std::string starter;
        /// What the program of client 0 reads in the place of that terminal; empty: that terminal.
        std::string inputFile;
        /// The core file of that program to look at; empty: none.
        std::string core;
        /// Nonce of this client: letters and digits.
        std::string nonce;
        /// The terminal that the debugger itself runs on.
        std::string terminal;
        /// The terminal that the program reads from.
        std::string inputTerminal;
        /// What the debugger shall print once at its start, and before the prompt behind the
        /// message of each error: letters, digits and control bytes. Empty: nothing.
        std::string errorMark;
        /// A library to be loaded into the program, and not into the debugger; empty: none. Its
        /// path has no characters that a shell or LD_PRELOAD take for their own.
        std::string preload;
        /// Whether the debugger may keep what it finds in a program's symbols for the next one.
        bool cachesIndex = false;
        /// Whether a task that would end its job, by MPI_Abort or for an error in MPI, is to be
        /// stopped there, by debuggers that can.
        bool stopsOnAbort = false;
    };

    /// What a line of a backtrace of all threads says.
    struct StackLine {
        enum Kind { OTHER, THREAD, CALL } kind = OTHER;
        /// The bare name of a call, without arguments and parameter types.
        std::string function;
        /// "file:line" of a call, or its library; empty when the debugger does not know.
        std::string place;
        /// The path of the library that a call is in; empty: the program itself, or unknown.
        std::string library;
        /// Whether the thread is the one that runs main.
        bool isMain = false;
        /// A function of the program's that an interpreter runs, or a call of that interpreter.
        bool isInterpreted = false, isInterpreter = false;
    };

    /// What an expression is worth in one task.
    struct Value {
        /// Nothing: it is no number. Integers of 64 bits are exact.
        std::optional<long double> number;
        /// As the debugger shows it, in one line; or why there is no value.
        std::string text;
        /// The function of the frame in which it was found; empty: the debugger does not tell.
        std::string function;
        /// Whether that frame is the selected one, and not the innermost of the program's own.
        bool isSelected = true;
        /// Whether the task has no process: then this is what its program begins with.
        bool isStatic = false;
    };

    virtual ~Driver() = default;

    /// The debugger's name, for scripts.
    virtual std::string name() const = 0;

    /// The command line that starts the debugger.
    virtual std::vector<std::string> argv(const Launch& launch) const = 0;
    /// The words behind the debugger's name, the last one to be followed by the path of a
    /// directory, that make it keep an index of symbols there; none: it cannot.
    virtual std::vector<std::string> indexCacheWords() const { return {}; }
    /// The prompt that it then shows, byte for byte.
    virtual std::string prompt(const std::string& nonce) const = 0;
    /// The line without an end that would make the debugger wait for another line.
    virtual std::string whole(std::string line) const = 0;
    /// Whether output that ends like this waits for an answer (a secondary prompt).
    virtual bool asks(std::string_view tail) const = 0;
    /// What a user can type in place of the lines that this question asks for one by one; empty: it
    /// is another question.
    virtual std::string insteadOfLines(std::string_view) const { return ""; }
    /// Whether an unfinished line looks like the debugger's report of where the task has stopped,
    /// which may be printed before its mark of that.
    virtual bool beginsStop(std::string_view) const { return false; }
    /// Where the task stands, when the debugger says by this line that it has stopped there: a CALL
    /// with its place; else OTHER.
    virtual StackLine parseStop(std::string_view) const { return {}; }
    /// The line that the debugger prints when an interrupt finds it idle.
    virtual std::string interruptEcho() const = 0;
    /// Whether this line shows that an interrupt was taken.
    virtual bool showsInterrupt(std::string_view line) const = 0;
    /// What the debugger prints in front of the process id of a forked child that it does not
    /// debug; empty: it does not tell of forks.
    virtual std::string forkMark() const = 0;
    /// What would end the job, when a line says that the task stands there (Launch::stopsOnAbort):
    /// "MPI_Abort" or "a fatal error in MPI"; else empty.
    virtual std::string_view keptAt(std::string_view /*line*/) const { return ""; }
    /// Whether the debugger starts its program with a library (Launch::preload).
    virtual bool preloads() const { return false; }
    /// Whether the debugger can print an error mark.
    virtual bool marksErrors() const { return false; }
    /// Whether this line is the message of an error, for a debugger that prints no marks.
    virtual bool reportsError(std::string_view) const { return false; }
    /// Whether this line of the start-up is of no interest to the user.
    virtual bool isGreeting(std::string_view line) const = 0;
    /// Whether this line of the start-up says what could not be done or believed.
    virtual bool complains(std::string_view) const { return false; }
    /// What the user can do about this line of the start-up; empty: nothing is known.
    virtual std::string hintFor(std::string_view) const { return ""; }
    /// Whether this command line lets the task run until the prompt; for a debugger that prints no
    /// marks of that (PromptMatcher).
    virtual bool letsRun(std::string_view line) const = 0;
    /// Whether a task goes on by this command line from where it stands, instead of running for a
    /// call of one of its functions only.
    virtual bool leavesPlace(std::string_view line) const { return letsRun(line); }
    /// Whether a debugger says by this line that its task has ended or begins anew.
    virtual bool endsTask(std::string_view) const { return false; }
    /// Why this command line is of no use for core files, which have no process, as a sentence;
    /// empty: it is, or the debuggers have processes.
    virtual std::string refusal(std::string_view) const { return ""; }
    /// The line of the debugger's as users are to see it.
    virtual std::string shown(std::string line) const { return line; }
    /// What is different from what the debugger shows by itself, in one line; empty: nothing.
    virtual std::string notice() const { return ""; }
    /// Whether this command line takes bars as its own, a pipe of the debugger, say.
    virtual bool keepsBars(std::string_view line) const = 0;
    /// The command that prints the stacks of all threads, at most this many calls of each.
    virtual std::string backtraceCommand(int calls) const = 0;
    virtual StackLine parseStackLine(std::string_view line) const = 0;
    /// The command that prints the value of an expression.
    virtual std::string valueCommand(const std::string& expression) const = 0;
    virtual Value parseValue(std::string_view answer) const = 0;

    /// The first line of a text that is not empty.
    static std::string firstLine(std::string_view text);
    /// The number that a text is, and nothing else; nothing when it is none.
    static std::optional<long double> numberIn(std::string_view text);
    /// The command that tells whether the task stands as an interrupt would leave it, so that it
    /// may run for a moment, and what it prints then; any other text is the reason why not, an
    /// empty one that the debugger cannot tell. Empty: there is no such command.
    virtual std::string standingCommand() const { return ""; }
    virtual std::string mayRun() const { return ""; }
    /// The command that lets such a task run until it is interrupted, without a word of the
    /// debugger about that.
    virtual std::string resumeCommand() const { return ""; }

    /// Whether a word names one of these commands, perhaps shortened down to so many letters.
    struct CommandName {
        std::string_view name;
        std::size_t least;
    };
    static bool names(std::string_view word, std::span<const CommandName> commands);

  protected:
    /// The bare name of a call as debuggers print it: without its arguments and parameter types.
    static std::string functionName(std::string_view call);
};

/// The driver for an executable: lldb when its name begins so, else gdb.
std::unique_ptr<Driver> makeDriver(const std::string& executable,
                                   Driver::Subject subject = Driver::Subject::PROGRAM);

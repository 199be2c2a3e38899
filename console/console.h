#pragma once

#include "common/argument.h"
#include "console/ccommand.h"
#include "console/consolesession.h"
#include "console/cstatemachine.h"
#include "console/frontendlink.h"
#include "console/settings.h"

#include <exception>
#include <string>

/// The console's command-line options; ends with a row of type ARG_NULL.
constexpr int numConsoleArgs = 6;
extern const ArgDescription consoleArgs[numConsoleArgs];

/// The console: one object, made by main, whose init is the whole session.
///
/// It owns its parts: the settings, the link to the front end, the session (replies, output, what
/// is in flight) and the command line (what a typed line means). Two threads work on it. The main
/// thread reads every message of the front end and has the session handle it; the input thread
/// (none in batch mode) prompts, reads lines and carries out what the command line makes of them.
/// The signal handler touches the state machine and a flag of the session, nothing else. No program
/// calls countLineNumOfFile.
class Console : private CommandLine::Context {
  public:
    Console();
    /// Ctrl-C is ignored from here on.
    ~Console() override;

    /// The session from the connection to its end. Raises Error and BrokenConnection for what goes
    /// wrong before the front end has given this console its number.
    void init(Argument& args);
    /// The body of the input thread.
    void watchInput();
    /// The data loop of the main thread.
    void watchData();
    /// Acts on SIGINT and SIGPIPE; async-signal-safe.
    void SignalHandler(int sig);

    void getArgs(Argument& args);
    /// Parses one line and carries it out. Throws Token for a line that is wrong.
    void parseCommandLine(const char* line);

  private:
    // Constant once the session has started.
    std::string serverHost;
    int sessionNum = 0;
    bool isLuma = false;
    bool isInteractive = true;
    std::string cmdLine;
    int feId = -1; // -1: unknown
    std::string dirName, configFileName, historyFileName;
    StateMachine& machine;

    // These say themselves who may call.
    Settings settings;
    FrontEndLink link;
    ConsoleSession session;

    // Input thread only.
    CommandLine commands;
    /// Taken when a line first needs it, given back when the line has been carried out.
    ConsoleSession::Lock turn;
    long mistakes = 0;       // lines
    bool complete = false;   // the input was read to its end, or left by a command
    bool lineInHand = false; // the line read last says something
    bool lineLost = false;   // it came too late to be carried out
    std::exception_ptr inputFailure;

    void connectToFrontEnd();
    void openSettings();
    void runSession();
    void recallHistory();
    void readLines();
    void reportError(const char* message, const char* rest);

    // Command history file.
    void writeHistoryFile(const std::string& line);
    static int countLineNumOfFile(const std::string& path);
    void readHistoryFile(const std::string& count) const;

    // What the meaning of a line depends on. The first question about the state takes the turn, so
    // that the answer holds until the line has been carried out.
    bool servesLuma() const override { return isLuma; }
    bool isNormal() override;
    bool isInterrupted() override;
    ConsoleSession::Lock& takeTurn();

    void carryOut(const Actions::None&) {}
    void carryOut(const Actions::Send& command);
    void carryOut(const Actions::Group& group);
    void carryOut(const Actions::Leave&);
    void carryOut(const Actions::Quit&);
    void carryOut(const Actions::Exit&);
    void carryOut(const Actions::ShowOption& shown);
    void carryOut(const Actions::SetOption& change);
    void carryOut(const Actions::OptionUsage&);
    void carryOut(const Actions::Help& help);
    void carryOut(const Actions::History& history);
    void carryOut(const Actions::Match& match);
    void carryOut(const Actions::Refuse& refused);
    void carryOut(const Actions::Undefined& quotation);
    void carryOutAny(const Action& action);
};

/// The entry of the input thread.
void* wthread(void* console);

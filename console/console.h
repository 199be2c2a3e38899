#pragma once

#include "common/argument.h"
#include "common/command.h"
#include "common/data.h"
#include "common/reply.h"
#include "common/token.h"
#include "common/unixsock.h"
#include "console/cstatemachine.h"
#include "console/openrequests.h"

#include <atomic>
#include <exception>
#include <map>
#include <mutex>
#include <string>
#include <thread>

/// The console's command-line options; ends with a row of type ARG_NULL.
constexpr int numConsoleArgs = 6;
extern const ArgDescription consoleArgs[numConsoleArgs];

/// The console: one object, made by main, whose init is the whole session.
///
/// Two threads work on it. The main thread reads every message of the front end and acts on it; the
/// input thread (none in batch mode) prompts, reads lines and carries them out or sends them. What
/// both touch is guarded by the turn (the state machine's lock); sending has a lock of its own, so
/// that a long send does not keep the main thread from reading. The signal handler touches the
/// state machine and nothing else.
class Console {
  public:
    Console();
    /// Ctrl-C is ignored from here on.
    ~Console();

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
    void parseCommandLine(const char* line);

    // Settings.
    void readConfiguration();
    bool addVariable(const char* line);
    static bool checkColor(const std::string& name, int& id);
    static bool checkDmode(const std::string& name, int& mode);
    static bool setColor(int& field, Token& word);
    static bool setDmode(int& field, Token& word);
    static bool setBcastOpt(int& field, Token& word);
    std::string getConfigValue(const std::string& key) const;

  private:
    friend void* wthread(void* console);

    // Constant once the session has started.
    std::string serverHost;
    int sessionNum = 0;
    bool isLuma = false;
    bool isInteractive = true;
    std::string cmdLine;
    int myId = 0;
    int feId = -1;
    std::map<std::string, std::string> cmdMap;
    std::string dirName, configFileName, historyFileName;
    int maxHistoryLines = 1000;
    StateMachine& machine;
    std::thread::id mainThread;

    // Guarded by sendMutex for sending; reading belongs to the main thread.
    UnixSocket client;
    std::mutex sendMutex;
    Command curCmd;

    // Main thread only.
    Reply curReply;
    Data curData;

    // Guarded by the turn.
    /// What this console has asked and not been told yet.
    OpenRequests open;
    std::string prompt;
    Data lastData;
    std::string curGroupName;
    int c_ecolor = 2;
    int c_scolor = 9;
    int c_dcolor = 1;
    int c_bcolor = 7;
    int c_dmode = 0;
    int toBcast = 0;
    /// The next ON reply prints the prompt, because the input thread waits at an old one.
    bool needToPrompt = false;
    /// A client command has had neither its READY nor a refusal.
    bool unanswered = false;
    /// The input thread has prompted and waits for a line.
    bool atPrompt = false;

    // What was not carried out, for who asked for it by VEX_CONSOLE_REPORT. The first is the main
    // thread's, the others are the input thread's.
    long refusals = 0;
    long mistakes = 0;
    bool complete = false; // the input was read to its end, or left by a command

    // Input thread only.
    GroupCommand subCmd;
    std::string badField;
    std::exception_ptr inputFailure;

    // The end of the session. A QUIT is wanted from the moment that the state says so.
    std::atomic<bool> quitWanted{false};
    std::atomic<bool> quitSent{false};

    void connectToFrontEnd();
    void openSettings();
    void runSession();
    void sendBatchCommand();
    void tellReport() const;
    void sendQuit();

    using Lock = std::unique_lock<StateMachine>;
    /// The turn, with no command or request in flight: the input thread waits for that, the main
    /// thread does not. A front end that owes an answer after Ctrl-C is waited for only so long.
    Lock takeTurn();
    void transmit(Command::Type type, const std::string& group, const char* text, int n);
    /// Notes a group request as open and makes its state change, from the state that the turn's
    /// holder sees.
    void openRequest(OpenRequests::Kind kind);

    bool showPrompt();
    void recallHistory();

    // Messages of the front end.
    void handleReply();
    void actOnReply();
    void answered(StateMachine::STATE state);
    void switched(const char* suffix, StateMachine::STATE state);
    void promptAgain(const char* suffix);
    void handleData();
    void handleReady(Lock& turn);
    void handleText();
    bool display(Data& data, int ecolor, int scolor, int dcolor, const char* pattern);

    // Command history file.
    void writeHistoryFile(const std::string& line);
    static int countLineNumOfFile(const std::string& path);
    void readHistoryFile(const std::string& count) const;

    // Commands.
    void reportError(const char* message, const char* rest);
    void dispatch(int id, Token& t);
    void helpCommand(Token& t);
    void LumahelpCommand(Token& t);
    void optionCommand(Token& t);
    void interruptCommand(Token& t);
    void leaveCommand(Token& t);
    void matchCommand(Token& t);
    void groupCommand(Token& t);
    void onCommand(Token& t);
    void sendCommand(Token& t);
    void quitCommand(Token& t);
    void exitCommand(Token& t);
    void historyCommand(Token& t);
    void sendInstantCmd(Token& t);
    void sendScriptCmd(Token& t);
    void sendStatCmd(Token& t);
    void sendClientCmd(Token& t);
    void leaveSession();
    bool confirm(const char* question);
    void forward(Command::Type type, Token& t);
    void forwardText(Command::Type type, Lock& turn, const char* text);
    void printUseSend(Token& t);
    void groupSubcommand(const std::string& name, Token& t);
    bool parseGroupExpression(Token& t);
    void sendGroupCmd();
    void transmitGroup(const GroupCommand& command, const std::string& group);
    void createFilteredGroupCmd(Lock& turn);
    void listCommands() const;
    bool showDetail(Token& t) const;
    bool hasCommand(int id) const;
    bool applyOption(Token& t);
    void printOption(int index) const;
    void addTabContext();
    void addNewTabContext(const Data& data);
};

/// The entry of the input thread.
void* wthread(void* console);

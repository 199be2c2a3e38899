#pragma once

#include "common/data.h"
#include "common/reply.h"
#include "console/cstatemachine.h"
#include "console/frontendlink.h"
#include "console/openrequests.h"
#include "console/settings.h"
#include "console/tabcontext.h"

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>

/// One console's part in a session: what it has asked and not been told yet, its current group, the
/// output of its last command, and the prompt that goes with all that.
///
/// The input thread prompts and sends, the main thread handles the front end's records as they
/// come. What both touch is guarded by the turn, the lock of the state machine. A function that is
/// given the turn gives it back before it sends, so that the other thread need not wait for the
/// send. Nor is the turn held while output is shown and kept, which may take long: who wants to
/// prompt waits for what is being shown, which ends at a line once Ctrl-C has been pressed, and who
/// wants the kept output for its own lock. The settings and the link must outlive the object.
class ConsoleSession {
  public:
    using Lock = std::unique_lock<StateMachine>;

    ConsoleSession(const Settings& choices, FrontEndLink& connection);

    // Input thread.

    /// Waits until no command or request is in flight, or the session ends, and gives the turn. A
    /// front end that owes an answer after Ctrl-C is waited for two seconds.
    Lock takeTurn();
    /// Takes the turn, whatever is in flight, as soon as nothing is being shown.
    Lock takeQuiet();
    /// Takes the turn and prompts; false, and no prompt, when the session ends.
    bool showPrompt();
    /// To be called when the line behind the prompt has been read.
    void endPrompt();
    /// Sends a command to the current group and makes its change of state. The text of an interrupt
    /// is not sent.
    void send(Lock& turn, Command::Type type, const std::string& text);
    void sendGroupCmd(Lock& turn, const GroupCommand& command);
    /// Goes from INTERRUPTED to RUNNING. For the turn's holder.
    void leave() {
        stops = false;
        machine.parseConsole(StateMachine::COMMON_CMD_EVENT);
    }
    /// Prints the output of the last command through a cascade; false when that is malformed. For
    /// the turn's holder.
    bool match(const std::string& cascade);
    /// Ends this console alone.
    void disconnect();

    // Main thread.

    /// Sends the one line of a batch run, whose READY ends the session.
    void sendBatchCommand(const std::string& cmdLine);
    void handleReply();
    void handleData();
    /// To be called once the input thread has ended: sends a QUIT that is wanted and has not been
    /// sent, and gives the front end time to read it.
    void finish();

    // Any thread.

    /// Ends the whole session: the state says so, then the front end is told.
    void quit();
    /// Has finish send a QUIT; async-signal-safe.
    void wantQuit() { quitWanted = true; }
    bool isQuitWanted() const { return quitWanted; }
    /// Ends what is being shown, at a line; async-signal-safe.
    void cutShort() { ++interrupts; }

    // Once both threads have ended.

    /// How many commands the front end has refused.
    long getRefusals() const { return refusals; }
    /// Whether a client command has had neither its READY nor a refusal.
    bool isUnanswered() const { return unanswered; }

  private:
    const Settings& settings;
    FrontEndLink& link;
    StateMachine& machine;

    // Main thread only.
    bool isBatch = false;
    Reply curReply;
    Data curData;
    TabContext words;
    long refusals = 0;

    // Guarded by the turn.
    OpenRequests open;
    std::string prompt;
    std::string curGroupName;
    bool unanswered = false;
    bool stops = false;    // the user has had the command interrupted, and it has not ended
    bool atPrompt = false; // the input thread has prompted and waits for a line
    /// The next ON reply prints the prompt, because the input thread waits at an old one.
    bool needToPrompt = false;

    // Taken behind the turn; whoever has it does not wait for the turn.
    std::mutex keeping;
    Data lastData;             // guarded by keeping
    std::size_t keptLines = 0; // that it has been given; guarded by keeping
    bool unseen = false;       // not all of that was shown; guarded by keeping

    // Output is being shown; begins under the turn.
    std::atomic<bool> showing{false};
    std::atomic<bool> quietAwaited{false}; // the input thread sleeps until it has been shown
    std::atomic<unsigned> interrupts{0};

    // A QUIT is wanted from the moment that the state says so.
    std::atomic<bool> quitWanted{false};
    std::atomic<bool> quitSent{false};

    void sendQuit();
    /// Notes a request as open and makes its change of state, from the state that the turn's holder
    /// sees.
    void openRequest(OpenRequests::Kind kind);
    void createFilteredGroupCmd(Lock& turn);
    void buildPrompt(bool interrupted);
    struct Colours {
        int equal, similar, different;
    };
    Colours ownColours() const;
    bool display(Data& data, int mode, const Colours& colours, const char* pattern,
                 unsigned before);
    void endShowing();
    void awaitQuiet();
    void keep(int limit);

    void actOnReply(Lock& turn);
    void refused();
    void answered();
    void switched(StateMachine::STATE state);
    void promptAgain(bool interrupted);
    void handleReady(Lock& turn);
    void tellUnseen();
    void handleText(Lock& turn);
};

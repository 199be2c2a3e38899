#pragma once

#include "backend/os/eventloop.h"
#include "backend/os/signals.h"
#include "backend/os/stream.h"
#include "frontend/session/channel.h"
#include "frontend/terminal/consoleprocess.h"

#include <string>
#include <sys/types.h>

/// The process on the user's terminal: runs a console of a session there, and tells the user what
/// becomes of the session behind it. The session is another process without a terminal, see
/// Guardian; ControlServer lists the texts between the two. One thread.
class Foreground {
  public:
    struct Start {
        int session;
        /// The console program.
        std::string console;
        /// The session's guardian, a child of this process; -1: none, the session runs already.
        pid_t guardian = -1;
        /// Whether the standard input is a script; its success shows in the exit status.
        bool script = false;
        /// Whether to stay until the session ends, although its console has ended.
        bool waits = false;
    };

    Foreground(Start start, Channel line);

    /// Returns when the console has ended and it is known what becomes of the session. Gives the
    /// exit status. Throws std::system_error.
    int run();

  private:
    const Start start;
    EventLoop loop;
    Channel line;
    Stream stream;
    Signals signals;
    Timer consoleTimer; // for a console that is to end
    Timer sessionTimer; // for a session that is to end
    ConsoleProcess console;
    Descriptor report; // from the console; see VEX_CONSOLE_REPORT in vex(5)
    int status = 0;
    int signalled = 0;     // the signal that ends this process; 0: none
    bool connected = true; // the line to the session is open
    bool guarded;          // the guardian lives
    bool midLine = false;  // the console has left its prompt on the terminal's last line

    void onSignal(int number);
    void onChild();
    void onConsoleEnded();
    void waitToHear();
    void onText(const std::string& text);
    void endConsole(int reminders);
    void endSession();
    void finishIfOver();
    void say(const std::string& sentence) const;
    void startConsole();
    void awaitConsole();
    bool succeeded() const;
    bool failed() const;
};

#pragma once

#include "backend/os/eventloop.h"
#include "backend/os/signals.h"
#include "backend/os/stream.h"
#include "frontend/session/channel.h"
#include "frontend/terminal/consoleprocess.h"

#include <string>
#include <sys/types.h>

/// What stands on the user's terminal: runs a console of a session there, and tells the user what
/// becomes of the session behind it. The session is another process without a terminal, see
/// Guardian; what is said between the two is told in ControlServer. One thread.
class Foreground {
  public:
    struct Start {
        int session;
        /// The console program.
        std::string console;
        /// The session's guardian, a child of this process; -1: joins a session that runs.
        pid_t guardian = -1;
        /// Whether its standard input is a script whose success is wanted.
        bool script = false;
        /// Whether to stay until the session ends, although its console has ended.
        bool waits = false;
    };

    Foreground(Start start, Channel line);

    /// Until the console has ended and it is known what becomes of the session. Gives the exit
    /// status. Throws std::system_error.
    int run();

  private:
    const Start start;
    EventLoop loop;
    Channel line;
    Stream stream;
    Signals signals;
    Timer timer;
    Timer lastResort; // patience with a session that is to end
    ConsoleProcess console;
    Descriptor report; // of a script's console; see VEX_CONSOLE_REPORT in vex(5)
    int status = 0;
    int signalled = 0;     // the signal that ends this process
    bool connected = true; // with the session
    bool guarded;          // the guardian lives
    bool midLine = false;  // the console ended at its prompt, without having been told to

    void onSignal(int number);
    void onChild();
    void onConsoleEnded();
    void waitToHear();
    void onText(const std::string& text);
    void endConsole(int patience);
    void insist();
    void finishIfOver();
    void say(const std::string& sentence) const;
    void startConsole();
    bool succeeded() const;
};

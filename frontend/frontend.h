#pragma once

#include "frontend/attendants.h"
#include "frontend/consoles.h"
#include "frontend/debuggers.h"
#include "frontend/helpers.h"
#include "frontend/identities.h"
#include "frontend/options.h"
#include "frontend/release.h"
#include "frontend/session.h"
#include "frontend/signals.h"
#include "frontend/switchboard.h"

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include <memory>
#include <optional>
#include <string>

/// A session from its start to its end: starts the debuggers, serves consoles, and takes everything
/// down again. Owns all processes and descriptors of the session and the one event loop;
/// single-threaded. What is said to whom is decided by the Switchboard. The user's terminal is the
/// front part's business (FrontPart), which the session may outlive.
class Frontend : private Switchboard::Outlet {
  public:
    /// The line leads to the front part whose console is the first. The options name existing
    /// programs; the session must live as long as this. Throws std::runtime_error.
    Frontend(const Options& options, Session& session, Channel line);
    ~Frontend() override;

    /// The whole session; gives the exit status.
    int run();

  private:
    enum Phase { STARTING, SERVING, ENDING };

    const Options options;
    const std::unique_ptr<Debugger> debugger;
    const std::string program; // for vex --list
    const Clock::time_point begin = Clock::now();
    asio::io_context loop;
    Phase phase = STARTING;
    int status = 0;
    bool closing = false; // of ENDING the part after the tasks were released

    Signals signals;
    asio::steady_timer boardTimer; // the switchboard's next deadline
    std::optional<Clock::time_point> armed;
    asio::steady_timer closeTimer; // patience with consoles that do not read to the end
    Attendants attendants;
    Consoles consoles;
    Debuggers debuggers;
    Switchboard board;
    Helpers helpers;
    Identities identities;
    Release release;

    // Switchboard::Outlet
    void toConsole(int console, const Reply& reply) override { consoles.send(console, reply); }
    void toConsole(int console, const Data& data) override { consoles.send(console, data); }
    void toClient(int client, const std::string& line) override { debuggers.type(client, line); }
    void interrupt(int client) override { debuggers.interrupt(client); }
    void startHelper(int client, const std::string& command, const std::string& input) override;
    void stopHelper(int client) override { helpers.stop(client); }
    bool isProgram(const std::string& name) override;
    std::string describe(int client) override { return debuggers.describe(client); }
    void sessionOver() override { end(0); }

    Attendants::Handler attendantsHandler();
    Consoles::Handler consolesHandler();
    Debuggers::Handler debuggersHandler();
    Helpers::Handler helpersHandler();

    void onSignal(int number);
    void onChild();
    void giveUp();
    void onStarted();
    void command(int console, const Command& command);
    void onConsoleGone(int console);
    void endIfDeserted();
    std::string onConsoleLeft(bool first, Attendants::Leave how);
    std::string facts() const;
    bool mayRead(int client) const { return !consoles.congested(board.ownerOf(client)); }
    void resumeReading();

    void schedule();
    void end(int exitStatus);
    void closeSession();
    void killAll();
};

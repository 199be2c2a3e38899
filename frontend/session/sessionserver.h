#pragma once

#include "backend/clients/detachment.h"
#include "backend/os/signals.h"
#include "frontend/session/clients.h"
#include "frontend/session/consoles.h"
#include "frontend/session/controlserver.h"
#include "frontend/session/options.h"
#include "frontend/session/session.h"
#include "frontend/session/userprograms.h"
#include "frontend/session/whoqueries.h"
#include "frontend/switchboard/switchboard.h"

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include <memory>
#include <optional>
#include <string>

/// A session from its start to its end: starts the clients, serves consoles, and takes everything
/// down again. Owns all processes and descriptors of the session and the one event loop;
/// single-threaded. What is said to whom is decided by the Switchboard. The user's terminal is the
/// front part's business (Foreground), which the session may outlive.
class SessionServer : private Switchboard::Outlet {
  public:
    /// The line leads to the front part whose console is the first. The options name existing
    /// programs; the session must live as long as this. Throws std::runtime_error.
    SessionServer(const Options& options, Session& session, Channel line);
    ~SessionServer() override;

    /// The whole session; gives the exit status.
    int run();

  private:
    enum Phase { STARTING, SERVING, ENDING };

    const Options options;
    const std::unique_ptr<Driver> driver;
    const std::string program; // for vex --list
    const Clock::time_point begin = Clock::now();
    asio::io_context loop;
    Phase phase = STARTING;
    int status = 0;
    bool closing = false; // of ENDING the part after the tasks were released

    Signals signals;
    asio::steady_timer boardTimer; // the switchboard's next deadline
    asio::steady_timer closeTimer; // patience with consoles that do not read to the end
    ControlServer controls;
    Consoles consoles;
    Clients clients;
    Switchboard board;
    UserPrograms programs;
    WhoQueries whoQueries;
    Detachment detachment;

    // Switchboard::Outlet
    void toConsole(int console, const Reply& reply) override { consoles.send(console, reply); }
    void toConsole(int console, const Data& data) override { consoles.send(console, data); }
    void toClient(int client, const std::string& line) override { clients.type(client, line); }
    void interrupt(int client) override { clients.interrupt(client); }
    void startUserProgram(int client, const std::string& command,
                          const std::string& input) override;
    void stopUserProgram(int client) override { programs.stop(client); }
    bool isProgram(const std::string& name) override;
    std::string describe(int client) override { return clients.describe(client); }
    void sessionOver() override { end(0); }
    void wakeAt(std::optional<Clock::time_point> time) override;

    ControlServer::Handler controlsHandler();
    Consoles::Handler consolesHandler();
    Clients::Handler clientsHandler();
    UserPrograms::Handler programsHandler();

    void onSignal(int number);
    void onChild();
    void giveUp();
    void onStarted();
    void command(int console, const Command& command);
    void onConsoleGone(int console);
    void endIfDeserted();
    std::string onConsoleLeft(bool first, ControlServer::Leave how);
    std::string facts() const;
    bool mayRead(int client) const { return !consoles.congested(board.ownerOf(client)); }
    void resumeReading();

    void end(int exitStatus);
    void closeSession();
    void killAll();
};

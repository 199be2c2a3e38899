#pragma once

#include "frontend/attendants.h"
#include "frontend/client.h"
#include "frontend/consolelink.h"
#include "frontend/debugger.h"
#include "frontend/debuggerstart.h"
#include "frontend/errorwatch.h"
#include "frontend/forks.h"
#include "frontend/helpers.h"
#include "frontend/launchedjob.h"
#include "frontend/options.h"
#include "frontend/remoteclient.h"
#include "frontend/session.h"
#include "frontend/switchboard.h"

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

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
    asio::io_context loop;
    Session& session;
    const std::string job;     // names this session in the environment of what it starts
    const std::string program; // for vex --list
    Phase phase = STARTING;
    int status = 0;
    bool closing = false; // of ENDING the part after the tasks were released

    asio::posix::stream_descriptor listener;
    asio::steady_timer listenTimer;
    asio::signal_set signals;
    asio::steady_timer boardTimer; // the switchboard's next deadline
    std::optional<Clock::time_point> armed;
    asio::steady_timer phaseTimer; // patience while starting and while ending

    const Clock::time_point begin = Clock::now();
    Attendants attendants;
    std::map<int, std::shared_ptr<ConsoleLink>> links;
    int lastConsole = 0;

    std::unique_ptr<LaunchedJob> launched; // null: the debuggers are this machine's
    std::vector<std::unique_ptr<Client>> clients;
    std::vector<std::string> greetings; // what each debugger said before its first prompt
    std::unique_ptr<ErrorWatch> errors; // for a script; else null
    std::vector<bool> alive;
    std::vector<bool> attached; // holds its task of a running job
    std::vector<pid_t> stopped; // tasks that must be continued once they are released
    std::size_t nextToStart = 0;
    std::set<int> pending; // started, and neither at their first prompt yet nor ended
    Switchboard board;
    Helpers helpers;
    std::vector<std::pair<int, Command>> asking; // consoles that want to know who is who
    int identities = 0;                          // that agents have not told yet
    asio::steady_timer identityTimer;            // patience with them
    Forks forks;

    // Switchboard::Outlet
    void toConsole(int console, const Reply& reply) override;
    void toConsole(int console, const Data& data) override;
    void toClient(int client, const std::string& line) override;
    void interrupt(int client) override;
    void startHelper(int client, const std::string& command, const std::string& input) override;
    void stopHelper(int client) override { helpers.stop(client); }
    bool isProgram(const std::string& name) override;
    std::string describe(int client) override;
    void sessionOver() override;

    void listen();
    void awaitSignals();
    void onSignal(int number);
    void onChild();
    void join(std::unique_ptr<UnixSocket> connection);
    void serve(int id);
    void onLinkClosed(int id);
    void endIfDeserted();
    int openConsoles() const;
    std::string onConsoleLeft(bool first, Attendants::Leave how);
    std::string facts() const;

    bool attaches() const { return !options.targets.empty(); }
    void startClients();
    void startClient(int id);
    void launch();
    void setTasks(int count);
    void onAgent(int rank, std::shared_ptr<AgentLink> link);
    void onLauncherSaid(const std::string& line);
    void command(int console, const Command& command);
    void allIdentified();
    Client::Handler handlerOf(int id);
    DebuggerStart debuggerStart(int id) const;
    void onOutput(int id, std::string_view text);
    void onPrompt(int id);
    void onStarted(int id);
    pid_t processOf(int id) const;
    int adopt(const Forks::Child& child);
    void onAdopted(int id, const Forks::Child& child);
    void onClientEnded(int id);
    void allStarted();
    void tellGreetings() const;
    void sayWhoIsMissing();

    void schedule();
    void send(int console, const std::string& frame);
    bool mayRead(int client) const;
    void resumeReading();
    void end(int exitStatus);
    void releaseTasks(int patience);
    void endAgents();
    bool debuggersRun() const;
    void closeSession();
    void giveUp();
    void killAll();
};

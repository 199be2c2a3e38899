#pragma once

#include "backend/clients/client.h"
#include "backend/clients/forks.h"
#include "backend/drivers/debuggerstart.h"
#include "backend/drivers/driver.h"
#include "backend/drivers/errorwatch.h"
#include "backend/os/eventloop.h"
#include "backend/os/limits.h"
#include "frontend/launch/launchedjob.h"
#include "frontend/launch/remoteclient.h"
#include "frontend/session/options.h"
#include "frontend/session/startupoutput.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// The debuggers of a session, one for each client: starts them here, through a launcher or where
/// the tasks run, and those of forked processes later, and carries what they say. What goes wrong
/// at the start is told on the standard error. One thread; the handlers run from the event loop or
/// from collect.
class Clients : private LaunchedJob::Owner, private RemoteClient::Owner {
  public:
    struct Handler {
        /// How many there will be, when only the launcher knows.
        std::function<void(int clients)> sized;
        /// Each has prompted, or ended; from here on the clients may be used.
        std::function<void()> started;
        /// The start has failed, and the user was told so.
        std::function<void()> failed;
        std::function<void(int client, std::string_view text)> output;
        std::function<void(int client)> prompted;
        std::function<bool(int client)> mayRead;
        std::function<void(int client)> ended;
        /// A forked process has become a client; who it is.
        std::function<void(int client, const std::string& who)> joined;
        /// Something for all users: about a client, or about none in particular.
        std::function<void(int client, const std::string& text)> tell;
        std::function<void(const std::string& text)> announce;
        /// An answer to askIdentities has come, or will not.
        std::function<void()> identified;
    };

    /// The options and the driver must live as long as this.
    Clients(EventLoop& loop, const Options& options, const Driver& driver, std::string job,
            Handler handler);
    ~Clients() override;

    void start();
    /// Looks what has ended; call it on SIGCHLD.
    void collect();
    /// Adds the ids of the processes that are waited for here.
    void listPids(std::vector<pid_t>& pids) const;

    void type(int client, const std::string& line);
    void interrupt(int client) { at(client).client->interrupt(); }
    /// Reads on where mayRead has said no.
    void resume();
    /// Which process the client's is, in one line.
    std::string describe(int client) const { return at(client).client->identity(); }
    /// Asks the agents for that; how many answers will come.
    int askIdentities();
    bool alive(int client) const { return at(client).alive; }
    /// How many are left.
    int living() const;

    /// Ends them: those that have attached let go; agents take down or let go what they run.
    void end();
    /// Whether something is to be waited for after that.
    bool releasing() const;

    /// A script that ran for the client has failed.
    void scriptFailed(int client) {
        if (errors) errors->scriptFailed(client);
    }
    /// What a script's end is to be told of errors; nothing when there were none.
    std::optional<std::string> verdict() const;

  private:
    struct Seat {
        std::unique_ptr<Client> client; // null: not started yet
        bool alive = true;
        bool attached = false; // holds its task of a running job
        int parent = -1;       // the client that has forked it
        pid_t process = 0;     // the forked process
        bool joining = false;  // it has not become a client yet
        bool asked = false;    // who it is
    };
    enum Phase { STARTING, RUNNING, OVER };

    EventLoop& loop;
    const Options& options;
    const Driver& driver;
    const std::string job; // names this session in the environment of what it starts
    const Handler handle;
    Phase phase = STARTING;
    std::deque<Seat> seats;              // they stay where they are
    std::unique_ptr<LaunchedJob> agents; // null: all debuggers are this machine's
    std::size_t nextLocal = 0;
    std::size_t begun = 0;
    std::set<int> starting; // neither at their first prompt yet nor ended
    StartupOutput startupOutput;
    std::unique_ptr<ErrorWatch> errors; // for a script; else null
    Forks forks;
    Timer patience; // of the user

    Seat& at(int client) { return seats[static_cast<std::size_t>(client)]; }
    const Seat& at(int client) const { return seats[static_cast<std::size_t>(client)]; }
    bool isLocal(std::size_t client) const;
    void callAgents();
    void startLocal();
    void startOne(int client);
    void sayWhoIsMissing();
    void allStarted();
    std::optional<std::string> defect() const;
    void fail(const std::string& problem);

    Client::Handler handlerOf(int client);
    std::unique_ptr<Client> remote(int client, std::shared_ptr<AgentLink> link,
                                   const DebuggerStart& start);
    Driver::Launch newLaunch() const;
    DebuggerStart startOf(int client) const;
    DebuggerStart startOfFork(int client, pid_t process) const;
    void onOutput(int client, std::string_view text);
    void onPrompt(int client);
    void onStarted(int client);

    int newSeat(int parent, pid_t process);
    std::optional<std::string> refusal(const Limits::Facts& facts) const;
    int adopt(const Forks::Child& child);
    void onForkPrompted(int client);
    void joinFork(int client);

    // LaunchedJob::Owner
    void onSize(int size) override;
    void onAgent(int client, std::shared_ptr<AgentLink> link) override;
    void onForkedAgent(int parent, pid_t process, std::shared_ptr<AgentLink> link) override;
    void onMissing(int client, const std::string& problem) override;
    void onLauncherSaid(const std::string& line) override;
    void onJobFailed(const std::string& problem) override { fail(problem); }

    // RemoteClient::Owner
    void onEnded(int client) override;
    void onIdentified(int client) override;
    void onTold(int client, const std::string& text) override;
};

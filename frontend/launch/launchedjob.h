#pragma once

#include "backend/jobs/launcher.h"
#include "backend/os/eventloop.h"
#include "frontend/launch/agentport.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// The agents of a session, which connect back to here: started by the launcher of a parallel job
/// with its tasks, or by ssh where tasks run already. Once all are there they belong to whoever
/// took them, and nobody else can connect, but for the agents' own further connections when forked
/// processes are of interest. One thread; the handlers run from the event loop, or from collect.
class LaunchedJob {
  public:
    struct Plan {
        /// The launcher's command line, or that of ssh; the agent's is put behind it.
        std::vector<std::string> launcher;
        /// The agent's program, as it is called where the tasks run.
        std::string agent;
        /// The host of each client: the launcher is started for each, with the host behind its
        /// words, and each agent learns its place by its standard input; one without a host has no
        /// agent. Empty: the launcher starts all tasks, and tells them their places.
        std::vector<std::string> hosts;
        /// Goes on without the agents that hosts do not bring.
        bool lenient = false;
        /// Lets agents in for what the tasks fork.
        bool forks = false;
        /// Also agents of this machine come by TCP.
        bool onlyTcp = false;
    };
    struct Handler {
        /// How many tasks there are; once, before any is connected.
        std::function<void(int size)> sized;
        /// The agent of a task is there; once for each.
        std::function<void(int rank, std::shared_ptr<AgentLink> link)> connected;
        /// An agent is there for a process that the task of a client has forked.
        std::function<void(int client, pid_t process, std::shared_ptr<AgentLink> link)> forked;
        /// No agent will come for a client; a sentence for the user.
        std::function<void(int rank, const std::string& problem)> missing;
        /// The launcher printed a line, or something is to be told of it.
        std::function<void(const std::string& line)> said;
        /// The start cannot come to its end; a sentence for the user.
        std::function<void(const std::string& problem)> failed;
    };

    static constexpr int maxSize = 4096;

    LaunchedJob(EventLoop& loop, Plan plan, Handler handler);

    /// Throws std::runtime_error with a sentence for the user.
    void start();
    /// Looks which launchers have ended; call it on SIGCHLD.
    void collect();
    /// The hosts that were asked for an agent and have not brought it yet, each once.
    std::set<std::string> awaitedHosts() const;
    /// Whether a launcher still runs.
    bool running() const;
    /// Adds the ids of the launchers' processes.
    void listPids(std::vector<pid_t>& pids) const;
    /// Lets no further agent in, and says nothing more. Ends logins that have brought no agent.
    void stop();

  private:
    EventLoop& loop;
    const Plan plan;
    const Handler handle;
    std::optional<AgentPort> port;
    std::optional<RendezvousFile> file;
    struct Login {
        std::unique_ptr<Launcher> launcher;
        std::unique_ptr<Timer> patience; // of a lenient plan
        bool late = false;
    };
    std::vector<Login> launchers;
    std::vector<int> remote; // the clients to start a launcher for, in their order
    std::vector<bool> present;
    std::size_t expected = 0; // agents; 0: not known yet
    std::size_t arrivals = 0; // and those that will not come
    bool spoke = false;       // a launcher has printed something
    bool over = false;        // stopped, or failed

    bool perHost() const { return !plan.hosts.empty(); }
    int size() const { return static_cast<int>(present.size()); }
    const std::string& hostOf(std::size_t launcher) const {
        return plan.hosts[static_cast<std::size_t>(remote[launcher])];
    }
    bool isThere(std::size_t launcher) const;
    void startNext();
    void limit(std::size_t launcher);
    void count();
    void launch(std::vector<std::string> argv, const std::string& input);
    void onHello(const AgentHello& hello, const std::shared_ptr<AgentLink>& link);
    void onForked(const AgentHello& hello, const std::shared_ptr<AgentLink>& link);
    void setSize(int size);
    void onEnded(std::size_t launcher, const std::string& how);
    void fail(const std::string& problem);
};

#pragma once

#include "backend/jobs/logins.h"
#include "backend/os/eventloop.h"
#include "backend/wire/noderecords.h"
#include "frontend/launch/agentport.h"

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// The agents of a session, which connect back to here: started by the launcher of a parallel job
/// with its tasks, or by ssh where tasks run already. Once all tasks are there, no other agent can
/// connect. One thread.
class LaunchedJob : private AgentPort::Owner, private Logins::Owner {
  public:
    struct Plan {
        /// The launcher's command line, or that of ssh; the agent's is put behind it.
        std::vector<std::string> launcher;
        /// The agent's program, as it is called where the tasks run.
        std::string agent;
        /// The host of each client: the launcher is started for each, with the host behind its
        /// words, and each agent reads its rank from its standard input; a client without a host
        /// has no agent. Empty: the launcher starts all tasks, and tells them their ranks.
        std::vector<std::string> hosts;
        /// One agent serves all clients of a host: their tasks run already.
        bool oneAHost = false;
        /// Goes on without the agents that hosts do not bring.
        bool lenient = false;
        /// Also agents of this machine come by TCP.
        bool onlyTcp = false;
    };
    /// Hears of the job; from the event loop, from start or from collect.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// How many tasks there are; once, before any is connected.
        virtual void onSize(int size) = 0;
        /// The agent of a node is there. The link has no handler yet; what the node says of its
        /// tasks goes to admit.
        virtual void onAgent(const AgentHello& hello, std::shared_ptr<AgentLink> link) = 0;
        /// No agent will come for a client; a sentence for the user.
        virtual void onMissing(int client, const std::string& problem) = 0;
        /// The launcher printed a line, or something is to be told of it.
        virtual void onLauncherSaid(const std::string& line) = 0;
        /// A launcher did not end when it was asked to, and was killed; the command takes back what
        /// it has left behind.
        virtual void onLeftBehind(const std::string& launcher, const std::string& remedy) = 0;
        /// The start has failed; a sentence for the user.
        virtual void onJobFailed(const std::string& problem) = 0;
    };

    /// The owner must outlive this.
    LaunchedJob(EventLoop& loop, Plan plan, Owner& owner);

    /// Throws std::runtime_error with a sentence for the user.
    void start();
    /// Looks which launchers have ended; call it on SIGCHLD.
    void collect() { logins.collect(); }
    /// A node has these tasks. Gives the clients that they are; others are refused. Each client
    /// comes once.
    std::vector<int> admit(const std::string& host, const std::vector<NodeRecords::Task>& tasks);
    /// The hosts that were asked for an agent and have not brought it yet, each once.
    std::set<std::string> awaitedHosts() const;
    /// Whether a launcher still runs.
    bool running() const { return logins.running(); }
    /// Lets no further agent in, and tells of nothing more but of what a launcher leaves behind;
    /// with `stillTells`, because all tasks have ended, also of what launchers say of that. Makes
    /// the launchers end, which collect sees.
    void stop(bool stillTells = false);
    /// Tells no more of that.
    void hush() { tells = false; }

  private:
    enum Phase { GATHERING, COMPLETE, OVER };

    EventLoop& loop;
    const Plan plan;
    Owner& owner;
    Phase phase = GATHERING;
    std::optional<AgentPort> port;
    std::optional<RendezvousFile> file;
    const std::vector<std::vector<int>> remote; // the clients of each login
    const std::vector<std::size_t> loginOf;     // of each client; none: `noLogin`
    Logins logins;
    std::vector<bool> present; // of each client: its agent is there, will not come or is not needed
    std::size_t expected = 0;  // agents; 0: not known yet
    std::size_t arrivals = 0;  // agents that are there or will not come
    bool spoke = false;        // a launcher has printed something
    bool tells = false;        // of what launchers say, although it is over

    bool perHost() const { return !plan.hosts.empty(); }
    int size() const { return static_cast<int>(present.size()); }
    const std::string& hostOf(std::size_t login) const {
        return plan.hosts[static_cast<std::size_t>(remote[login].front())];
    }
    bool isPresent(int client) const { return present[static_cast<std::size_t>(client)]; }
    void setSize(int size);
    void startLogins();
    void markPresent(int client);
    void count();
    bool isFit(const std::string& host, const NodeRecords::Task& task);
    void fail(const std::string& problem);

    // AgentPort::Owner
    void onHello(const AgentHello& hello, std::shared_ptr<AgentLink> link) override;
    void onFull() override;

    // Logins::Owner
    Logins::Command commandOf(std::size_t login) override;
    void onLine(std::size_t login, const std::string& line) override;
    void onEnded(std::size_t login, const std::string& how) override;
};

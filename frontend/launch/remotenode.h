#pragma once

#include "backend/drivers/debuggerstart.h"
#include "backend/folding/node.h"
#include "backend/wire/agentlink.h"
#include "backend/wire/noderecords.h"
#include "mpitrace/mpistate.h"

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

/// The debuggers behind an agent, which runs them where their tasks are: one link for all of them.
/// Ends them when destroyed: the agent takes down everything of its tasks when its connection
/// closes, or lets go of what it attached to. One thread. Outlives the loop's last turn.
class RemoteNode : public Node, private AgentLink::Handler {
  public:
    /// Hears of nodes and their clients, by their numbers in the session; from the event loop. Must
    /// not destroy the node from within a call.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// The node can run the debuggers of these tasks, which start asks for.
        virtual void onTasks(RemoteNode& node, const std::vector<NodeRecords::Task>& tasks) = 0;
        /// The start of debuggers is over. Those that have ended are not among the clients any
        /// more.
        virtual void onStarted(RemoteNode& node, const NodeRecords::Started& started) = 0;
        /// Debuggers have ended, or their agent is gone; once for each client.
        virtual void onEnded(const ClientSet& clients) = 0;
        /// The agent has told which processes tasks are, or will not; once for each time that
        /// askIdentities said true.
        virtual void onIdentified(const ClientSet& clients) = 0;
        /// The agent has told what its tasks do in MPI, or will not; once for each time that
        /// askMpiStates said true.
        virtual void onMpiStates() = 0;
        /// The agent has something to say about a task to the user.
        virtual void onTold(int client, const std::string& text) = 0;
        /// Debuggers have reported errors.
        virtual void onErrors(const NodeRecords::Errors& errors) = 0;
        /// A task has forked a process. The answer is start, or leaveFork.
        virtual void onForked(RemoteNode& node, const NodeRecords::Fork& fork) = 0;
        /// Hears what the clients say; null: nobody does at the moment.
        virtual Node::Listener* listener() = 0;
        /// Whether to go on reading; when not, resume begins again.
        virtual bool mayRead(const RemoteNode& node) = 0;
    };

    /// The owner must outlive this.
    RemoteNode(std::shared_ptr<AgentLink> link, std::string host, Owner& owner);
    ~RemoteNode() override;

    /// Starts debuggers.
    void start(const NodeRecords::Start& start);
    /// Those that were started and have not ended.
    const ClientSet& clients() const { return living; }
    /// Asks which processes the clients' are; false when there is nobody to ask.
    bool askIdentities(const ClientSet& clients);
    /// Which process the client's is, in one line, as was told last.
    std::string identity(int client) const;
    /// Asks what the tasks do in MPI; false when there is nobody to ask.
    bool askMpiStates();
    /// What the client's task does in MPI, as was told last.
    MpiState mpiState(int client) const;
    /// The forked process is not debugged.
    void leaveFork(const NodeRecords::Fork& fork);
    /// Ends the clients' debuggers; what they have attached to runs on.
    void release(const ClientSet& clients);
    /// Whether its agent has not hung up.
    bool open() const { return link->open(); }
    /// Ends all.
    void close() { link->close(); }
    /// Reads on after mayRead has said no.
    void resume() { link->resume(); }

    // Node
    void begin(const ClientSet& clients, const Work& work, Clock::time_point now) override;
    void type(const ClientSet& clients, const std::string& line) override;
    void interrupt(const ClientSet& clients, Clock::time_point now) override;
    ClientSet reply(const ClientSet& clients, const std::string& text,
                    Clock::time_point now) override;
    const std::string& host() const override { return hostName; }

  private:
    const std::shared_ptr<AgentLink> link;
    const std::string hostName;
    Owner& owner;
    ClientSet known;                       // all that were ever started
    ClientSet starting;                    // those of them whose start is not over
    ClientSet living;                      // those of them that have not ended
    ClientSet asking;                      // those that wait for an answer of the user
    std::map<int, std::string> identities; // as the agent has told them last
    std::deque<ClientSet> asked;           // whose identities, of answers that will come
    std::map<int, MpiState> mpiStates;     // the same
    int mpiAsked = 0;                      // answers that will come

    void end(ClientSet clients);
    void identified();

    // AgentLink::Handler
    void onRecord(const AgentRecord& record) override;
    void onClosed() override;
    bool takesRecords() override { return owner.mayRead(*this); }
};

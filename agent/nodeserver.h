#pragma once

#include "agent/connector.h"
#include "backend/clients/localclient.h"
#include "backend/os/eventloop.h"
#include "backend/wire/servednode.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// The debuggers that an agent runs, and its connection to the front end, which says what to do and
/// gets what the debuggers say. One thread.
class NodeServer : public Client::Listener,
                   private Connector::Owner,
                   private AgentLink::Handler,
                   private ServedNode::Outlet {
  public:
    /// Hears of the server, and of debuggers by the numbers of their clients in the session; from
    /// the event loop.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// A debugger is about to be started, as the front end wants it.
        virtual void onStart(const DebuggerStart& start) = 0;
        /// A debugger printed something.
        virtual void onOutput(int client, pid_t debugger, std::string_view text) = 0;
        /// The debugger holds the process that it was to attach to, or could not attach.
        virtual void onAttachDone(int client) = 0;
        /// The debugger has ended, or there will be none.
        virtual void onEnded(int client) = 0;
        /// The front end does not want a forked process debugged.
        virtual void onForkLeft(pid_t process) = 0;
        /// The connection is over, or could not be made: then with a problem.
        virtual void onOver(const std::string& problem) = 0;
    };

    /// Connects at once. The owner must outlive this.
    NodeServer(EventLoop& loop, const Rendezvous& where, std::vector<NodeRecords::Task> tasks,
               Owner& owner);
    ~NodeServer() override;

    /// A task has forked a process: the front end asks for its debugger, or leaves it.
    void offer(const NodeRecords::Fork& fork);
    /// Whether debuggers attach to their programs; known from the first onStart on.
    bool attaches() const { return attaching; }
    /// Looks which debuggers have ended, and tells the front end; whether one has.
    bool collect();
    /// Adds the processes of the debuggers that run.
    void listPids(std::vector<pid_t>& pids) const;
    bool running() const;
    /// Lets go of what the debuggers attached to, without breakpoints, and ends them.
    void release();
    /// One line for the user.
    void tell(int client, const std::string& text);

  private:
    struct Debugger {
        std::unique_ptr<LocalClient> client; // null: there is none
        pid_t target = 0;                    // the process to attach to; 0: none
        bool forked = false;                 // a task has forked that
    };

    EventLoop& loop;
    const std::vector<NodeRecords::Task> tasks;
    Owner& owner;
    Timer timer; // of the served node
    std::unique_ptr<Connector> connector;
    std::shared_ptr<AgentLink> link; // null: not yet, or not any more
    std::unique_ptr<Driver> driver;
    std::optional<ServedNode> node; // none: no debugger was asked for
    std::map<int, Debugger> debuggers;
    std::set<pid_t> offered; // forked processes
    bool attaching = false;

    void start(const NodeRecords::Start& wanted);
    void startOne(DebuggerStart start, const std::string& problem);
    void tellIdentities(const ClientSet& clients);
    void wait();

    // Client::Listener
    void onOutput(int client, std::string_view text) override;
    void onPrompt(int client) override;
    void onRuns(int client, bool runs) override { node->runs(client, runs); }
    bool mayRead(int client) override;

    // Connector::Owner
    void onConnected(std::shared_ptr<AgentLink> connected) override;
    void onUnreachable(const std::string& problem) override { owner.onOver(problem); }

    // AgentLink::Handler
    void onRecord(const AgentRecord& record) override;
    void onClosed() override;
    void onDrained() override;

    // ServedNode::Outlet
    void toClient(int client, const std::string& line) override;
    void interrupt(int client) override;
    void send(const AgentRecord& record) override;
};

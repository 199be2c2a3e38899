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

/// The connection of a node's agent to the front end, and the debuggers of the node behind it: the
/// front end says what to do, and gets what they say. One thread.
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
        /// The front end wants a debugger to be started so; started or failed tells the server what
        /// has come of it. `forked`: for a process that was offered.
        virtual void onStart(const DebuggerStart& start, bool forked) = 0;
        /// A debugger printed something.
        virtual void onOutput(int client, pid_t debugger, std::string_view text) = 0;
        /// The start of the debugger is over: it has prompted.
        virtual void onPrompted(int client) = 0;
        /// The debugger has ended, or there will be none.
        virtual void onEnded(int client) = 0;
        /// The front end does not want a forked process debugged.
        virtual void onForkLeft(pid_t process) = 0;
        /// The connection is over, or could not be made: then with a problem.
        virtual void onOver(const std::string& problem) = 0;
    };

    /// Connects at once. The owner must outlive this.
    NodeServer(EventLoop& loop, const Rendezvous& where, Owner& owner);
    ~NodeServer() override;

    /// The node can run the debugger of this task.
    void add(const NodeRecords::Task& task);
    /// A task has forked a process: the front end asks for its debugger, or leaves it.
    void offer(const NodeRecords::Fork& fork);

    /// The client's debugger runs, and attaches to `target` (0: to none). The notice for the user
    /// may be empty.
    void started(int client, std::unique_ptr<DebuggerProcess> process, pid_t target,
                 const std::string& notice);
    /// There is none; why is for the user.
    void failed(int client, const std::string& notice, const std::string& problem);
    /// Looks whether the client's debugger has ended, and tells the front end.
    void look(int client);
    /// Whatever has become of the client's debugger, nothing comes from it any more.
    void lose(int client);
    /// Lets go of what the client's debugger attached to, without breakpoints, and ends it.
    void release(int client);
    /// One line for the user.
    void tell(int client, const std::string& text);
    /// No debugger is left, nor comes: onOver follows once the front end has all that they have
    /// said, or at once.
    void finish();

  private:
    struct Debugger {
        std::optional<DebuggerStart> wanted; // until it has started
        std::unique_ptr<LocalClient> client; // null: there is none
        pid_t target = 0;                    // the process to attach to; 0: none
        bool forked = false;                 // a task has forked that
        bool ended = false;
    };

    EventLoop& loop;
    Owner& owner;
    std::vector<NodeRecords::Task> tasks; // that the front end does not know of yet
    Timer timer;                          // of the served node
    std::unique_ptr<Connector> connector;
    std::shared_ptr<AgentLink> link; // null: not yet, or not any more
    std::unique_ptr<Driver> driver;
    std::optional<ServedNode> node; // none: no debugger was asked for
    std::map<int, Debugger> debuggers;
    std::set<pid_t> offered; // forked processes

    void start(const NodeRecords::Start& wanted);
    void end(int id, Debugger& debugger);
    void tellTasks();
    void tellIdentities(const ClientSet& clients);
    void tellMpiStates(const ClientSet& clients);
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

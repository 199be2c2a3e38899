#pragma once

#include "agent/keptdebugger.h"
#include "agent/leftovers.h"
#include "agent/nodeserver.h"
#include "agent/startqueue.h"
#include "backend/clients/detachment.h"
#include "backend/clients/forks.h"
#include "backend/os/eventloop.h"
#include "backend/wire/noderecords.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// A task of a node, in the agent of the node: its debugger and those of what it forks, whose
/// parent is the task's keeper. When it is to end, its debuggers let go of what they attached to,
/// and the keeper kills everything below it; when the keeper was killed, this does it in its place.
/// One thread.
class Task : private AgentLink::Handler,
             private StartQueue::Starter,
             private Forks::Owner,
             private Detachment::Owner {
  public:
    /// Hears of tasks; from the event loop. Must not destroy the task from within the call.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// The keeper has introduced itself.
        virtual void onTask(Task& task) = 0;
        /// The keeper has ended, and nothing is left.
        virtual void onTaskOver(Task& task) = 0;
    };
    /// What the tasks of a node share.
    struct Node {
        EventLoop& loop;
        NodeServer& server;
        StartQueue& starts;
        Leftovers& leftovers;
    };

    /// `keeper`: the process at the other end of the link. The node and the owner must outlive
    /// this.
    Task(const Node& node, std::shared_ptr<AgentLink> link, pid_t keeper, Owner& owner);
    ~Task() override;

    /// How the session is told of it; valid from onTask on.
    const NodeRecords::Task& description() const { return told; }
    /// Whether it has forked the process, which was offered to the session.
    bool offers(pid_t process) const { return children.contains(process); }

    /// Has the keeper start a debugger, in its turn.
    void start(const DebuggerStart& start);
    /// The same that the server tells of clients, for those whose debuggers were started here.
    void heard(int client, pid_t debugger, std::string_view text);
    void prompted(int client);
    void ended(int client);
    void forkLeft(pid_t process);

    /// Ends it, with this exit status of the keeper and this text on its standard error.
    void end(int status, const std::string& text);

  private:
    /// JOINING: the keeper has not introduced itself. FINISHED: it was told to end. LOST: it was
    /// killed.
    enum Phase { JOINING, SERVING, ENDING, FINISHED, LOST };

    const Node node;
    const std::shared_ptr<AgentLink> link;
    const pid_t keeper;
    Owner& owner;
    Phase phase = JOINING;
    NodeRecords::Task told;
    std::map<int, DebuggerStart> starts;                           // of those that wait
    std::map<int, std::shared_ptr<KeptDebugger::State>> debuggers; // by their clients
    bool attaching = false;                                        // to a task that ran before
    Leftovers::Marks marks;                                        // of the debuggers
    std::optional<Forks> forks;                                    // none: not wanted
    std::map<pid_t, int> children; // forked processes that were offered, and their numbers in forks
    std::map<int, int> numbers;    // the same, by the clients that they have become
    Detachment detachment;
    KeeperOrder ending; // how the keeper is to end
    Timer watch;        // of debuggers whose keeper was killed

    void join(const AgentRecord& record);
    void takeDebugger(const KeeperStarted& started);
    void onGone(int client);
    int childOf(int client) const;
    void release();
    void lose();
    void watchOrphans();
    void over();

    // AgentLink::Handler
    void onRecord(const AgentRecord& record) override;
    void onClosed() override;

    // StartQueue::Starter
    void startDebugger(int client) override;

    // Forks::Owner
    int adopt(const Forks::Child& child) override;
    void tellOfForks(int parent, const std::string& text) override;

    // Detachment::Owner
    bool detaching() const override;
    std::vector<pid_t> heldTasks() const override;
    void killRest() override;
    void onDetached() override;
};

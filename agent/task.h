#pragma once

#include "agent/debuggerserver.h"
#include "agent/keptdebugger.h"
#include "agent/leftovers.h"
#include "agent/startqueue.h"
#include "backend/clients/detachment.h"
#include "backend/clients/forks.h"
#include "backend/os/eventloop.h"
#include "backend/wire/rendezvous.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// A task of a node, in the agent of the node: its debugger and those of what it forks, whose
/// parent is the task's keeper. When the task's connection ends, in whatever way, or the launcher
/// ends the keeper, the debuggers let go of what they attached to, and the keeper kills everything
/// below it; when the keeper was killed, this does it in its place. One thread.
class Task : private AgentLink::Handler,
             private DebuggerServer::Owner,
             private StartQueue::Starter,
             public Forks::Owner,
             private Detachment::Owner {
  public:
    /// Hears of tasks; from the event loop. Must not destroy the task from within the call.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// The keeper has ended, and nothing is left.
        virtual void onTaskOver(Task& task) = 0;
    };
    /// What the tasks of a node share.
    struct Node {
        EventLoop& loop;
        const Rendezvous& where;
        StartQueue& starts;
        Leftovers& leftovers;
    };

    /// `keeper`: the process at the other end of the link. The node and the owner must outlive
    /// this.
    Task(const Node& node, std::shared_ptr<AgentLink> link, pid_t keeper, Owner& owner);
    ~Task() override;

    /// Ends it, with this exit status of the keeper and this text on its standard error.
    void end(int status, const std::string& text);

  private:
    /// JOINING: the keeper has not introduced itself. FINISHED: it was told to end.
    enum Phase { JOINING, SERVING, ENDING, FINISHED, LOST, OVER };

    const Node node;
    const std::shared_ptr<AgentLink> link;
    const pid_t keeper;
    Owner& owner;
    Phase phase = JOINING;
    int jobSize = -1;
    std::map<int, std::unique_ptr<DebuggerServer>> servers; // the task's has number 0
    std::map<int, DebuggerStart> starts;                    // of those that wait
    std::map<int, std::shared_ptr<KeptDebugger::State>> debuggers;
    Leftovers::Marks marks;     // of the debuggers
    std::optional<Forks> forks; // none: not wanted
    Detachment detachment;
    KeeperOrder ending; // how the keeper is to end
    Timer watch;        // of debuggers whose keeper was killed

    void join(const AgentRecord& record);
    void open(int id, const AgentHello& hello);
    void takeDebugger(const KeeperStarted& started);
    void onGone(int id);
    void lose();
    void watchOrphans();
    bool attached() const;
    void over();

    // AgentLink::Handler
    void onRecord(const AgentRecord& record) override;
    void onClosed() override;

    // DebuggerServer::Owner
    void onStart(int id, const DebuggerStart& start) override;
    void onOutput(int id, std::string_view text) override;
    void onAttachDone(int id) override;
    void onNoDebugger(int id) override;
    void onPrompted(int id) override;
    void onOver(int id, const std::string& problem) override;

    // StartQueue::Starter
    void startDebugger(int id) override;

    // Forks::Owner
    int adopt(const Forks::Child& child) override;
    void tellOfForks(int parent, const std::string& text) override;

    // Detachment::Owner
    bool detaching() const override;
    std::vector<pid_t> heldTasks() const override;
    void killRest() override;
    void onDetached() override;
};

#pragma once

#include "agent/leftovers.h"
#include "agent/nodeserver.h"
#include "agent/startqueue.h"
#include "agent/task.h"
#include "backend/os/eventloop.h"
#include "backend/os/signals.h"
#include "backend/os/stream.h"
#include "backend/wire/rendezvous.h"
#include "common/descriptor.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

/// The agent of a node: serves the tasks whose keepers find it, for a front end that may be on
/// another machine. Ends when the last task is over, and the front end knows. One thread, one event
/// loop.
class NodeAgent : private Task::Owner, private NodeServer::Owner {
  public:
    /// Serves the keeper at `first`, a connected socket to the process `keeper`, and those that
    /// come to `listener`; none: no others come.
    NodeAgent(const Rendezvous& where, Descriptor first, pid_t keeper, Descriptor listener);

    void run();

    /// Makes a process that was just forked one of its own: of its own session, with no descriptors
    /// but these, on all processors of the node, whatever its parent was given.
    static void settle(const Descriptor& first, const Descriptor& listener);

  private:
    /// How the tasks end that are there then, and those that come later.
    struct End {
        int status = 0;
        std::string text;
    };

    Descriptor listener;
    EventLoop loop;
    Signals signals;
    NodeServer server;
    StartQueue starts;
    Leftovers leftovers;
    Stream door;
    Timer pause; // after a failure to accept
    std::map<Task*, std::unique_ptr<Task>> tasks;
    std::map<int, Task*> ranks;   // of the tasks that have one
    std::map<int, Task*> clients; // of the debuggers
    std::optional<End> over;
    Timer farewell; // to the front end, which may read no more

    void waitAtDoor();
    bool accept();
    void add(Descriptor socket, pid_t keeper);
    void end(int status, const std::string& text);
    void leave();

    // Task::Owner
    void onTask(Task& task) override;
    void onTaskOver(Task& task) override;

    // NodeServer::Owner
    void onStart(const DebuggerStart& start, bool forked) override;
    void onOutput(int client, pid_t debugger, std::string_view text) override;
    void onPrompted(int client) override;
    void onEnded(int client) override;
    void onForkLeft(pid_t process) override;
    void onOver(const std::string& problem) override;
};

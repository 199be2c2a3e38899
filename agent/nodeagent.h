#pragma once

#include "agent/leftovers.h"
#include "agent/startqueue.h"
#include "agent/task.h"
#include "backend/os/eventloop.h"
#include "backend/os/signals.h"
#include "backend/os/stream.h"
#include "backend/wire/rendezvous.h"
#include "common/descriptor.h"

#include <map>
#include <memory>

/// The agent of a node: serves the tasks whose keepers find it, for a front end that may be on
/// another machine. Ends when the last task is over. One thread, one event loop.
class NodeAgent : private Task::Owner {
  public:
    /// Serves the keeper at `first`, a connected socket to the process `keeper`, and those that
    /// come to `listener`; none: no others come.
    NodeAgent(Rendezvous where, Descriptor first, pid_t keeper, Descriptor listener);

    void run();

    /// Makes a process that was just forked one of its own: of its own session, with no descriptors
    /// but these, on all processors of the node, whatever its parent was given.
    static void settle(const Descriptor& first, const Descriptor& listener);

  private:
    const Rendezvous where;
    const Descriptor listener;
    EventLoop loop;
    Signals signals;
    StartQueue starts;
    Leftovers leftovers;
    Stream door;
    Timer pause; // after a failure to accept
    std::map<Task*, std::unique_ptr<Task>> tasks;

    void waitAtDoor();
    bool accept();
    void add(Descriptor socket, pid_t keeper);

    // Task::Owner
    void onTaskOver(Task& task) override;
};

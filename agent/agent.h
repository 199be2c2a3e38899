#pragma once

#include "agent/nodeserver.h"
#include "agent/rank.h"
#include "backend/clients/detachment.h"
#include "backend/clients/forks.h"
#include "backend/os/eventloop.h"
#include "backend/os/signals.h"
#include "backend/wire/rendezvous.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// Runs the debugger of one task for a front end, which may be on another machine, and further ones
/// for what the task forks. When the task's connection ends, in whatever way, or a signal asks it
/// to end, its debuggers let go of what they attached to, and it kills everything below this
/// process. One thread, one event loop.
class Agent : private NodeServer::Owner, public Forks::Owner, private Detachment::Owner {
  public:
    Agent(Rendezvous where, Rank rank);

    /// Gives the exit status.
    int run();

  private:
    const Rendezvous where;
    const Rank rank;
    EventLoop loop;
    Signals signals;
    std::optional<NodeServer> server;
    std::optional<Forks> forks;    // none: not wanted
    std::map<pid_t, int> children; // forked processes that were offered, and their numbers in forks
    std::map<int, int> numbers;    // the same, by the clients that they have become
    int lastChild = 1 << 30;
    Detachment detachment;
    bool ending = false;
    int status = 0;

    int childOf(int client) const;
    void onChild();
    void end(int exitStatus);

    // NodeServer::Owner
    void onStart(const DebuggerStart& start) override;
    void onOutput(int client, pid_t debugger, std::string_view text) override;
    void onAttachDone(int client) override;
    void onEnded(int client) override;
    void onForkLeft(pid_t process) override;
    void onOver(const std::string& problem) override;

    // Forks::Owner
    int adopt(const Forks::Child& child) override;
    void tellOfForks(int parent, const std::string& text) override;

    // Detachment::Owner
    bool detaching() const override;
    void onDetached() override;
};

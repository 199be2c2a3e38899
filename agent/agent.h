#pragma once

#include "agent/debuggerserver.h"
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
class Agent : private DebuggerServer::Owner, public Forks::Owner, private Detachment::Owner {
  public:
    Agent(Rendezvous where, Rank rank);

    /// Gives the exit status.
    int run();

  private:
    const Rendezvous where;
    const Rank rank;
    EventLoop loop;
    Signals signals;
    std::map<int, std::unique_ptr<DebuggerServer>> servers; // the task's has number 0
    std::optional<Forks> forks;                             // none: not wanted
    Detachment detachment;
    bool ending = false;
    int status = 0;

    void open(int id, const AgentHello& hello);
    /// Whether the task was there before its debugger.
    bool attached() const { return servers.at(0)->attaches(); }
    void onChild();
    void end(int exitStatus);

    // DebuggerServer::Owner
    void onStart(int id, const DebuggerStart& start) override;
    void onOutput(int id, std::string_view text) override;
    void onAttachDone(int id) override;
    void onNoDebugger(int id) override;
    void onOver(int id, const std::string& problem) override;

    // Forks::Owner
    int adopt(const Forks::Child& child) override;
    void tellOfForks(int parent, const std::string& text) override;

    // Detachment::Owner
    bool detaching() const override;
    void onDetached() override;
};

#pragma once

#include "agent/keeperrecords.h"
#include "backend/clients/debuggerprocess.h"
#include "backend/wire/agentlink.h"

#include <memory>
#include <utility>

/// A debugger whose parent is the keeper of its task. One thread.
class KeptDebugger : public DebuggerProcess {
  public:
    /// What is known of it, shared with who hears from the keeper.
    struct State {
        pid_t pid = -1;
        pid_t target = 0; // the process that it attaches to; 0: none
        bool running = true;
    };

    KeptDebugger(std::shared_ptr<AgentLink> keeper, int ofClient, std::shared_ptr<State> known,
                 Terminals handedOver)
        : link(std::move(keeper)),
          client(ofClient),
          state(std::move(known)),
          terminals(std::move(handedOver)) {}

    Terminals takeTerminals() override { return std::move(terminals); }
    pid_t pid() const override { return state->pid; }
    bool running() const override { return state->running && !told; }
    bool ended() override { return !state->running && !std::exchange(told, true); }
    void signal(int signal) override { send(signal, false); }
    void signalGroup(int signal) override { send(signal, true); }

  private:
    const std::shared_ptr<AgentLink> link;
    const int client;
    const std::shared_ptr<State> state;
    Terminals terminals;
    bool told = false;

    void send(int signal, bool group) {
        if (state->running) link->send(KeeperOrder::signal(client, signal, group));
    }
};

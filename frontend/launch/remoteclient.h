#pragma once

#include "backend/clients/client.h"
#include "backend/drivers/debuggerstart.h"
#include "backend/wire/agentlink.h"

#include <memory>
#include <string>

/// A debugger behind an agent, which runs it where its task is. Ends it when destroyed: the agent
/// takes down everything of its task when its connection closes, or lets go of what it attached to.
/// One thread. Outlives the loop's last turn.
class RemoteClient : public Client, private AgentLink::Handler {
  public:
    /// Hears of clients by their numbers in the session; from the event loop. Must not destroy the
    /// client from within a call.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// The debugger has ended, or its agent is gone; once.
        virtual void onEnded(int client) = 0;
        /// The agent has told which process its task is, or will not; once for each time that
        /// askIdentity said true.
        virtual void onIdentified(int client) = 0;
        /// The agent has something to say about its task to the user.
        virtual void onTold(int client, const std::string& text) = 0;
    };

    /// The client's number is that in `start`. The listener and the owner must outlive this.
    RemoteClient(std::shared_ptr<AgentLink> link, Listener& listener, Owner& owner,
                 const DebuggerStart& start);
    ~RemoteClient() override;

    void type(const std::string& line) override;
    void interrupt() override;
    void resume() override { link->resume(); }
    /// Ends the debugger; what it has attached to runs on.
    void release() override { link->close(); }
    /// Never: the owner is told.
    bool ended() override { return false; }
    pid_t pid() const override { return -1; }
    bool running() const override { return alive; }
    bool holds() const override { return attached; }
    std::string identity() const override;
    /// Asks the agent.
    bool askIdentity() override;

  private:
    const std::shared_ptr<AgentLink> link;
    Listener& listener;
    Owner& owner;
    const int number;  // of the client
    std::string known; // as the agent has told it last; empty: it has not
    int asked = 0;     // answers that will come
    bool attached = false;
    bool alive = true;

    // AgentLink::Handler
    void onRecord(const AgentRecord& record) override;
    void onClosed() override;
    bool takesRecords() override { return listener.mayRead(number); }
};

#pragma once

#include "backend/clients/client.h"
#include "backend/drivers/debuggerstart.h"
#include "backend/wire/agentlink.h"

#include <functional>
#include <memory>
#include <string>

/// A debugger behind an agent, which runs it where its task is. Ends it when destroyed: the agent
/// takes down everything of its task when its connection closes, or lets go of what it attached to.
/// One thread. Outlives the loop's last turn.
class RemoteClient : public Client {
  public:
    struct Watch {
        /// The debugger has ended, or its agent is gone; once.
        std::function<void()> gone;
        /// The agent has told which process its task is, or will not.
        std::function<void()> identified;
        /// The agent has something to say about its task to the user.
        std::function<void(const std::string& text)> told;
    };

    RemoteClient(std::shared_ptr<AgentLink> link, Listener& listener, Watch watch,
                 const DebuggerStart& start);
    ~RemoteClient() override;

    void type(const std::string& line) override;
    void interrupt() override;
    void resume() override { link->resume(); }
    /// Ends the debugger; what it has attached to runs on.
    void release() override { link->close(); }
    /// Never: it is told by the handler.
    bool ended() override { return false; }
    pid_t pid() const override { return -1; }
    bool running() const override { return alive; }
    bool holds() const override { return attached; }
    std::string identity() const override;
    /// The agent; `identified` comes once for each time that this said true.
    bool askIdentity() override;

  private:
    const std::shared_ptr<AgentLink> link;
    Listener& listener;
    const int number; // in the session
    const Watch watch;
    std::string known;
    int asked = 0;
    bool attached = false;
    bool alive = true;

    void onRecord(const AgentRecord& record);
    void onGone();
};

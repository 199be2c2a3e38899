#pragma once

#include "agent/connector.h"
#include "backend/clients/localclient.h"
#include "backend/os/eventloop.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>

/// One debugger that an agent runs, and its own connection to the front end, which says what to do
/// and gets what the debugger says. One thread; the handlers run from the event loop.
class DebuggerServer : public Client::Listener {
  public:
    struct Handler {
        /// The debugger may start: what the front end wants of it.
        std::function<void(const DebuggerStart& start)> started;
        /// The debugger printed something.
        std::function<void(std::string_view text)> output;
        /// The debugger holds what it was to attach to, or has found that it cannot.
        std::function<void()> prompted;
        /// There will be no debugger.
        std::function<void()> failed;
        /// The connection is over, or could not be made: then with a problem.
        std::function<void(const std::string& problem)> over;
    };

    /// Connects at once.
    DebuggerServer(EventLoop& loop, const Rendezvous& where, const AgentHello& hello,
                   Handler handler);
    ~DebuggerServer() override;

    /// Looks whether the debugger has ended, and tells the front end then.
    bool ended();
    bool running() const { return client && client->running(); }
    /// The debugger's process; -1: there is none.
    pid_t pid() const { return client ? client->pid() : -1; }
    /// Lets go of what it attached to, without breakpoints, and ends.
    void release();
    /// One line for the user.
    void tell(const std::string& text);

  private:
    EventLoop& loop;
    const int rank; // that the launcher has told; -1: none
    const pid_t forked;
    const Handler handle;
    std::unique_ptr<Connector> connector;
    std::shared_ptr<AgentLink> link; // null: not yet, or not any more
    std::unique_ptr<LocalClient> client;
    pid_t target = 0; // what the debugger attaches to
    bool prompted = false;

    void onLink(std::shared_ptr<AgentLink> arrived);
    void onRecord(const AgentRecord& record);
    void start(DebuggerStart start);
    void tellIdentity();
    void send(AgentRecord::Type type, const std::string& body);

    // Client::Listener
    void onOutput(int number, std::string_view text) override;
    void onPrompt(int number) override;
    bool mayRead(int number) override;
};

#pragma once

#include "agent/connector.h"
#include "backend/clients/localclient.h"
#include "backend/os/eventloop.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

/// One debugger of a node's agent, and its own connection to the front end, which says what to do
/// and gets what the debugger says. One thread.
class DebuggerServer : public Client::Listener,
                       private Connector::Owner,
                       private AgentLink::Handler {
  public:
    /// Hears of the servers of an agent, by their numbers there; from the event loop.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// The front end wants the debugger to be started so; started or failed tells the server
        /// what has come of it.
        virtual void onStart(int server, const DebuggerStart& start) = 0;
        /// The debugger printed something.
        virtual void onOutput(int server, std::string_view text) = 0;
        /// The debugger holds the process that it was to attach to, or could not attach.
        virtual void onAttachDone(int server) = 0;
        /// The debugger has prompted for the first time.
        virtual void onPrompted(int server) = 0;
        /// There will be no debugger.
        virtual void onNoDebugger(int server) = 0;
        /// The connection is over, or could not be made: then with a problem.
        virtual void onOver(int server, const std::string& problem) = 0;
    };

    /// Connects at once. The owner must outlive this.
    DebuggerServer(EventLoop& loop, int number, const Rendezvous& where, const AgentHello& hello,
                   Owner& owner);
    ~DebuggerServer() override;

    /// The debugger runs, and attaches to `process` (0: to none). The notice for the user may be
    /// empty.
    void started(std::unique_ptr<DebuggerProcess> debugger, pid_t process,
                 const std::string& notice);
    /// There is none; why is for the user.
    void failed(const std::string& notice, const std::string& problem);

    /// The debugger's client in the session; 0 before onStart.
    int clientNumber() const { return sessionNumber; }
    /// The process that the debugger attaches to, known when it has started; 0: none.
    pid_t attachedTo() const { return target; }

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
    const int number;   // among the agent's servers
    const int rank;     // as the launcher has told it; -1: it has not
    const pid_t forked; // the process that a task has forked; 0: the server is for a task
    Owner& owner;
    std::unique_ptr<Connector> connector;
    std::shared_ptr<AgentLink> link; // null: not yet, or not any more
    std::unique_ptr<LocalClient> client;
    std::optional<DebuggerStart> wanted; // until it has started
    int sessionNumber = 0;               // of the debugger's client
    pid_t target = 0;                    // the process to attach to; 0: none
    bool prompted = false;

    void start(DebuggerStart start);
    void tellIdentity();
    void send(AgentRecord::Type type, const std::string& body);

    // Client::Listener
    void onOutput(int client, std::string_view text) override;
    void onPrompt(int client) override;
    bool mayRead(int client) override;

    // Connector::Owner
    void onConnected(std::shared_ptr<AgentLink> connected) override;
    void onUnreachable(const std::string& problem) override { owner.onOver(number, problem); }

    // AgentLink::Handler
    void onRecord(const AgentRecord& record) override;
    void onClosed() override;
    void onDrained() override;
};

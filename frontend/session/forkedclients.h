#pragma once

#include "backend/clients/client.h"
#include "backend/clients/forks.h"
#include "backend/drivers/debuggerstart.h"
#include "backend/drivers/driver.h"
#include "backend/drivers/errorwatch.h"
#include "backend/os/eventloop.h"
#include "backend/os/limits.h"
#include "frontend/launch/remotenode.h"
#include "frontend/session/options.h"

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// The clients for processes that tasks fork. Finds the forked processes of this machine (Forks),
/// is told those of nodes, and has a debugger attach to each process, which becomes a
/// client once its debugger holds it and has told which process it is. One thread.
class ForkedClients : public Client::Listener, private Forks::Owner {
  public:
    /// Hears of clients from the event loop, or from collect.
    class Owner {
      public:
        virtual ~Owner() = default;
        virtual void onClientOutput(int client, std::string_view text) = 0;
        virtual void onClientPrompt(int client) = 0;
        virtual void onClientRuns(int client, bool runs) = 0;
        /// Whether to go on reading. After a no, resume makes it read on.
        virtual bool mayReadClient(int client) = 0;
        virtual void onClientEnded(int client) = 0;
        /// A forked process has become a client; the text says which process it is. The node is
        /// null for this process's.
        virtual void onClientForked(int client, const std::string& who, Node* node) = 0;
        /// Something for all users to know about a client.
        virtual void tellOfClient(int client, const std::string& text) = 0;
        /// An answer to askIdentities has come, or will not.
        virtual void onIdentity() = 0;
        /// How many tasks of the session have not ended.
        virtual int livingTasks() const = 0;
    };

    /// The options, the driver, `errors` (null: not watched for) and the owner must outlive this.
    ForkedClients(EventLoop& loop, const Options& options, const Driver& driver,
                  std::string sessionsJob, ErrorWatch* errors, Owner& owner);

    /// The start of the tasks is over; from here on forked processes may come, whose clients get
    /// the numbers from `first` up.
    void begin(int first) { firstNumber = first; }
    /// What a task's debugger of this machine, the process `debugger`, has printed.
    void heard(int task, pid_t debugger, std::string_view text) {
        forks.heard(task, debugger, text);
    }
    void taskEnded(int task) { forks.ended(task); }
    /// Has a node debug a process that the task of one of its clients has forked.
    void add(const Forks::Child& child, RemoteNode& node);
    // What a node tells of clients that were added.
    void onStarted(int number, const NodeRecords::Started& started);
    void onIdentified(const ClientSet& numbers);
    void onTold(int number, const std::string& text);
    /// Its debugger has ended, or its agent is gone.
    void ended(int number);

    /// Looks whose debuggers have ended.
    void collect();
    void resume();
    /// Of this machine.
    Client& client(int number) const { return *at(number).client; }
    /// Which process the client's is, in one line.
    std::string describe(int number) const { return at(number).identity(number); }
    /// Whether there is a client of this number that has not ended.
    bool alive(int number) const;
    /// How many clients there are that have not ended.
    int living() const;
    /// Whether a debugger of this machine still runs.
    bool running() const;
    /// Adopts no process any more, and lets go of those that it has.
    void end();

    /// What every debugger of a session is started with.
    static Driver::Launch newLaunch(const Driver& driver, const Options& options,
                                    const ErrorWatch* errors);

  private:
    struct Fork {
        /// ASKED: its debugger holds it, and its agent is to say which process it is. CLIENT: it
        /// has become a client. ENDED: after that. LOST: it has ended without that.
        enum Phase { STARTING, ASKED, CLIENT, ENDED, LOST };

        Forks::Child child;
        std::unique_ptr<Client> client; // null: a node has it
        RemoteNode* node = nullptr;     // null: this machine has it
        Phase phase = STARTING;

        bool alive() const { return phase < ENDED; }
        bool joined() const { return phase == CLIENT || phase == ENDED; }
        std::string identity(int number) const {
            return node ? node->identity(number) : client->identity();
        }
        void release(int number) const {
            if (node)
                node->release({number});
            else
                client->release();
        }
    };

    EventLoop& loop;
    const Options& options;
    const Driver& driver;
    const std::string job; // VEX_JOB
    ErrorWatch* const errors;
    Owner& owner;
    int firstNumber = 0;
    std::deque<Fork> clients; // they stay where they are
    Forks forks;
    bool over = false;

    Fork& at(int number) { return clients[static_cast<std::size_t>(number - firstNumber)]; }
    const Fork& at(int number) const {
        return clients[static_cast<std::size_t>(number - firstNumber)];
    }
    int nextNumber() const { return firstNumber + static_cast<int>(clients.size()); }
    DebuggerStart startOf(pid_t process) const;
    std::optional<std::string> refusal() const;
    void onFirstPrompt(int number, bool holds);
    void join(int number);

    // Client::Listener
    void onOutput(int number, std::string_view text) override;
    void onPrompt(int number) override;
    void onRuns(int number, bool runs) override;
    bool mayRead(int number) override { return over || owner.mayReadClient(number); }

    // Forks::Owner
    int adopt(const Forks::Child& child) override;
    void tellOfForks(int parent, const std::string& text) override;
};

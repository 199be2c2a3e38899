#pragma once

#include "backend/clients/client.h"
#include "backend/drivers/driver.h"
#include "backend/drivers/errorwatch.h"
#include "backend/os/eventloop.h"
#include "frontend/launch/launchedjob.h"
#include "frontend/launch/remotenode.h"
#include "frontend/session/forkedclients.h"
#include "frontend/session/options.h"
#include "frontend/session/startlosses.h"
#include "frontend/session/startprogress.h"
#include "frontend/session/startupoutput.h"
#include "frontend/session/taskstarts.h"

#include <algorithm>
#include <array>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <unordered_map>
#include <utility>
#include <vector>

/// The debuggers of a session, one for each client: starts those of the tasks here, through a
/// launcher or where the tasks run, leaves those of forked processes to ForkedClients, and carries
/// what they print. Tells on the standard error what goes wrong at the start. One thread.
class Clients : public Client::Listener,
                private LaunchedJob::Owner,
                private RemoteNode::Owner,
                private StartLosses::Owner,
                private StartProgress::Owner {
  public:
    /// Hears of clients from the event loop, or from collect.
    class Owner : public ForkedClients::Owner {
      public:
        /// How many tasks there will be, when only the launcher knows.
        virtual void onTaskCount(int tasks) = 0;
        /// Each debugger has prompted, or ended; from here on the clients may be used.
        virtual void onAllStarted() = 0;
        /// Tasks of a running job are missing; goOn is called if the user wants to go on without
        /// them.
        virtual void onMissingTasks(const std::string& question) = 0;
        /// The start has failed, and the user was told so.
        virtual void onStartFailed() = 0;
        /// Clients are those of a node on another machine, not this process's.
        virtual void onNode(const ClientSet& clients, Node& node) = 0;
        /// Hears what the clients of other machines say.
        virtual Node::Listener& nodeListener() = 0;
        /// Whether to go on reading what the clients say.
        virtual bool mayReadClients(const ClientSet& clients) = 0;
        /// An answer to askMpiStates has come, or will not.
        virtual void onMpiStates() = 0;
        /// Something for all users to know, about no client in particular.
        virtual void announce(const std::string& text) = 0;
    };

    /// The options, the driver and the owner must outlive this. The job names this session in the
    /// environment of the tasks.
    Clients(EventLoop& loop, const Options& options, const Driver& driver, std::string job,
            Owner& owner);
    ~Clients() override;

    void start();
    /// The user goes on without the tasks that are missing. Does nothing when nobody has asked.
    /// The session serves at once, for a report: with the debuggers that have started.
    void serveNow() {
        if (phase == STARTING) lost.cutShort();
    }
    void goOn() {
        if (phase == STARTING && std::exchange(asking, false)) serve();
    }
    /// What debuggers have said at the start that they could not do, with their clients.
    std::vector<std::pair<std::string, ClientSet>> complaints() const {
        return startupOutput.complaints(driver);
    }
    /// The tasks that have no debugger from the start on, see StartLosses.
    const StartLosses& losses() const { return lost; }
    /// Tells the user something about the session's start or its end.
    void say(const std::string& sentence) { progress.say(sentence); }
    /// A child of this process has ended, and was not reaped: does so, and gives true, when it is
    /// the debugger of a task.
    bool collect(pid_t child);

    /// Of a client of this machine.
    void type(int client, const std::string& line);
    void interrupt(int client) { of(client).interrupt(); }
    /// Reads on where the owner has refused.
    void resume();
    /// Which process the client's is, in one line.
    std::string describe(int client) const;
    /// Asks the agents which processes the clients' are; gives how many will answer.
    int askIdentities();
    /// Asks the agents what tasks do in MPI; gives how many will answer.
    int askMpiStates() {
        return static_cast<int>(
            std::ranges::count_if(nodes, [](const auto& node) { return node->askMpiStates(); }));
    }
    /// What a task does in MPI; one of a node: did when its agent answered.
    MpiState mpiState(int task) const {
        return at(task).node ? at(task).node->mpiState(task) : at(task).client->mpiState();
    }
    /// The tasks whose debuggers have not ended.
    ClientSet livingTaskSet() const {
        ClientSet living;
        for (int task = 0; isTask(task); ++task) {
            if (alive(task)) living.insert(task);
        }
        return living;
    }
    bool alive(int client) const {
        return isTask(client) ? at(client).phase != Task::ENDED : forked.alive(client);
    }
    /// How many clients have not ended: of all, and of the tasks.
    int living() const { return livingTasks() + forked.living(); }
    int livingTasks() const { return static_cast<int>(tasks.size() - count(Task::ENDED)); }

    /// Ends the debuggers: those that have attached let go; agents take down or let go what they
    /// run.
    void end();
    /// Whether something is to be waited for after that.
    bool releasing() const;

    /// A script that ran for the client has failed.
    void scriptFailed(int client) {
        if (errors) errors->scriptFailed(client);
    }
    /// What the end of a script tells of errors; nothing when there were none.
    std::optional<std::string> verdict() const { return errors ? errors->verdict() : std::nullopt; }

  private:
    struct Task {
        /// READY: its debugger has prompted. ENDED: its debugger has ended, or there will be none.
        enum Phase { AWAITED, STARTING, READY, ENDED };

        std::unique_ptr<Client> client; // null: there is no debugger yet, or a node has it
        RemoteNode* node = nullptr;     // null: no debugger yet, or one of this machine
        Phase phase = AWAITED;
    };
    enum Phase { STARTING, RUNNING, OVER };

    EventLoop& loop;
    const Options& options;
    const Driver& driver;
    const std::string job; // names this session in the environment of what it starts
    Owner& owner;
    Phase phase = STARTING;
    std::deque<Task> tasks; // by their numbers; they stay where they are
    std::array<std::size_t, Task::ENDED + 1> inPhase{}; // how many tasks are in each phase
    std::size_t localStarting = 0;                      // of them are this machine's and STARTING
    std::unordered_map<pid_t, int> taskOf;              // of a debugger of this machine that runs
    std::unique_ptr<LaunchedJob> agents;                // null: all debuggers are this machine's
    std::vector<std::unique_ptr<RemoteNode>> nodes;
    std::size_t nextLocal = 0; // the task to be started next, if it is a local one
    bool attached = false;     // a debugger holds a task that ran before
    bool errorsUntold = false; // a node's debuggers cannot tell their errors
    bool asking = false;       // whether to go on without the tasks that are missing
    StartupOutput startupOutput;
    const std::unique_ptr<ErrorWatch> errors; // for a script; else null
    const TaskStarts starts;
    std::set<RemoteNode*> refused; // a task of each was
    Timer refusal;                 // before those of them without another task are dropped
    ForkedClients forked;
    StartProgress progress;
    StartLosses lost;
    Timer farewell; // to nodes whose clients have ended

    bool isTask(int client) const { return static_cast<std::size_t>(client) < tasks.size(); }
    Task& at(int task) { return tasks[static_cast<std::size_t>(task)]; }
    const Task& at(int task) const { return tasks[static_cast<std::size_t>(task)]; }
    Client& of(int client) const {
        return isTask(client) ? *at(client).client : forked.client(client);
    }
    std::size_t count(Task::Phase reached) const { return inPhase[reached]; }
    void move(std::size_t task, Task::Phase reached);
    void leaveOut(const ClientSet& missing);
    bool isLocal(std::size_t task) const;
    void callAgents();
    void startLocal();
    void allStarted();
    bool mayGoOn();
    void serve();
    std::optional<std::string> defect() const;
    void fail(const std::string& problem);

    void settle(int task, Task::Phase reached);

    // Client::Listener
    void onOutput(int task, std::string_view text) override;
    void onPrompt(int task) override;
    void onRuns(int task, bool runs) override {
        if (phase == RUNNING && alive(task)) owner.onClientRuns(task, runs);
    }
    bool mayRead(int task) override { return phase != RUNNING || owner.mayReadClient(task); }

    // LaunchedJob::Owner
    void onSize(int size) override;
    void onAgent(const AgentHello& hello, std::shared_ptr<AgentLink> link) override;
    void onMissing(const ClientSet& missing, const std::string& problem) override;
    void onLauncherSaid(const std::string& line) override;
    void onLeftBehind(const std::string& launcher, const std::string& remedy) override;
    /// Those that are there without the rest go on.
    void onJobFailed(const std::string& problem) override {
        if (phase == STARTING) fail(problem);
    }

    // StartLosses::Owner
    void onStandstill(int seconds, bool again) override;

    // StartProgress::Owner
    StartProgress::Facts startFacts() const override;

    // RemoteNode::Owner
    void onTasks(RemoteNode& node, const std::vector<NodeRecords::Task>& found) override;
    void onStarted(RemoteNode& node, const NodeRecords::Started& started) override;
    void onEnded(const ClientSet& clients) override;
    void onIdentified(const ClientSet& clients) override;
    void onMpiStates() override {
        if (phase == RUNNING) owner.onMpiStates();
    }
    void onTold(int client, const std::string& text) override;
    void onErrors(const NodeRecords::Errors& reported) override;
    void onForked(RemoteNode& node, const NodeRecords::Fork& fork) override;
    Node::Listener* listener() override {
        return phase == RUNNING ? &owner.nodeListener() : nullptr;
    }
    bool mayRead(const RemoteNode& node) override {
        return phase != RUNNING || owner.mayReadClients(node.clients());
    }

    void taskEnded(int task);
};

#pragma once

#include "backend/clients/detachment.h"
#include "backend/os/eventloop.h"
#include "backend/os/signals.h"
#include "frontend/session/clients.h"
#include "frontend/session/consoles.h"
#include "frontend/session/controlserver.h"
#include "frontend/session/options.h"
#include "frontend/session/session.h"
#include "frontend/session/userprograms.h"
#include "frontend/session/waitqueries.h"
#include "frontend/session/whoqueries.h"
#include "frontend/switchboard/switchboard.h"

#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// A session from its start to its end: starts the clients, serves consoles, and takes everything
/// down again. Owns all processes and descriptors of the session and the one event loop;
/// single-threaded. The Switchboard decides who is told what. The user's terminal is left to the
/// Foreground, which the session may outlive; whatever a session that was killed leaves behind, to
/// the Guardian.
class SessionServer : private Switchboard::Outlet,
                      private Clients::Owner,
                      private Consoles::Owner,
                      private ControlServer::Owner,
                      private UserPrograms::Owner,
                      private WhoQueries::Owner,
                      private WaitQueries::Owner,
                      private Detachment::Owner {
  public:
    /// The line leads to the foreground whose console is the first. The options name existing
    /// programs; the session must live as long as this. Throws std::runtime_error.
    SessionServer(const Options& options, Session& session, Channel line);

    /// The whole session; gives the exit status. When it throws, the session has ended as well.
    int run();

  private:
    enum Phase { STARTING, SERVING, ENDING };

    const Options options;
    const std::unique_ptr<Driver> driver;
    const std::string program; // for vex --list
    const Clock::time_point begin = Clock::now();
    EventLoop loop;
    Phase phase = STARTING;
    bool startTold = false; // what debuggers could not do then, in a report
    int status = 0;
    bool closing = false; // ENDING, and nothing is left below this process

    Signals signals;
    Timer boardTimer; // the switchboard's next deadline
    Timer closeTimer; // for consoles that do not read to the end
    ControlServer controls;
    Consoles consoles;
    Clients clients;
    Switchboard board;
    UserPrograms programs;
    WhoQueries whoQueries;
    WaitQueries waitQueries;
    Detachment detachment;

    // Switchboard::Outlet
    void toConsole(int console, const Reply& reply) override { consoles.send(console, reply); }
    void toConsole(int console, const Data& data) override { consoles.send({console}, data); }
    void toConsoles(const std::vector<int>& to, const Data& data) override {
        consoles.send(to, data);
    }
    void toClient(int client, const std::string& line) override { clients.type(client, line); }
    void interrupt(int client) override { clients.interrupt(client); }
    void startUserProgram(int client, const std::string& command,
                          const std::string& input) override;
    void stopUserProgram(int client) override { programs.stop(client); }
    bool isProgram(const std::string& name) override;
    std::string describe(int client) override { return clients.describe(client); }
    std::vector<StackTree::Row> waits() override { return waitQueries.rows(); }
    std::string describeConsole(int console) override { return consoles.describe(console); }
    void sessionOver() override {
        // A report of debuggers that did not come may still be written.
        if (startTold || !clients.losses().gaveUp()) end(0);
    }
    void wakeAt(std::optional<Clock::time_point> time) override;

    // Clients::Owner
    void onTaskCount(int tasks) override { board.setClients(tasks); }
    void onAllStarted() override;
    void onMissingTasks(const std::string& question) override { controls.ask(question); }
    void onStartFailed() override { end(1); }
    void onClientOutput(int client, std::string_view text) override;
    void onClientPrompt(int client) override;
    void onClientRuns(int client, bool runs) override;
    bool mayReadClient(int client) override { return !consoles.congested(board.ownerOf(client)); }
    void onClientEnded(int client) override;
    void onClientForked(int client, const std::string& who, Node* node) override;
    void onNode(const ClientSet& ids, Node& node) override { board.setNode(ids, node); }
    Node::Listener& nodeListener() override { return board; }
    bool mayReadClients(const ClientSet& ids) override;
    void tellOfClient(int client, const std::string& text) override { board.tell({client}, text); }
    void announce(const std::string& text) override { board.announce(text); }
    void onIdentity() override { whoQueries.answered(); }
    void onMpiStates() override { waitQueries.answered(); }
    int livingTasks() const override { return clients.livingTasks(); }

    // Consoles::Owner
    void onConsoleJoined(int console) override { board.consoleJoined(console); }
    void onCommand(int console, const Command& command) override;
    void onConsoleLeft(int console) override;
    void onConsoleDrained() override { resumeReading(); }
    void onConsoleDropped(int console, const std::string& why) override;

    // ControlServer::Owner
    std::string onConsoleEnded(bool first, ControlServer::Leave how) override;
    void onFirstGone() override;
    void onGiveUp() override;
    void onServe() override { clients.serveNow(); }
    void onGoOn() override { clients.goOn(); }
    void onEnd(int exitStatus) override { end(exitStatus); }
    std::string facts() const override;

    // UserPrograms::Owner
    void onProgramOutput(int client, std::string_view text) override;
    void onProgramEnded(int client, const std::string& problem) override;
    bool mayReadProgram(int client) override {
        return mayReadClient(client) && board.userProgramMayTalk(client);
    }

    // WhoQueries::Owner
    int askIdentities() override { return clients.askIdentities(); }
    void onIdentitiesKnown(int console, const Command& command) override;

    // WaitQueries::Owner
    int askMpiStates() override { return clients.askMpiStates(); }
    ClientSet mpiTasks() const override { return clients.livingTaskSet(); }
    MpiState mpiState(int task) const override {
        MpiState state = clients.mpiState(task);
        state.kept = board.isKept(task);
        return state;
    }
    std::string placeOf(int task) const override { return board.placeOf(task); }
    void onWaitsKnown(int console, const Command& command) override {
        onIdentitiesKnown(console, command);
    }

    // Detachment::Owner
    bool detaching() const override { return clients.releasing(); }
    std::vector<pid_t> heldTasks() const override;
    void onDetached() override;

    void onSignal(int number);
    void onChild();
    void endIfDeserted();
    void resumeReading();

    void takeDown();
    void end(int exitStatus);
};

#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/linecutter.h"
#include "backend/folding/node.h"
#include "backend/os/clock.h"
#include "common/clientset.h"
#include "common/data.h"
#include "frontend/switchboard/clientnodes.h"
#include "frontend/switchboard/remarks.h"
#include "frontend/switchboard/requests.h"
#include "frontend/switchboard/sampling.h"
#include "frontend/switchboard/stopplaces.h"

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The requests at work: has nodes type their lines at the clients' debuggers, feeds answers to the
/// user's programs, and gathers all output. Knows consoles by their numbers only; what their state
/// machines need is the Switchboard's.
///
/// Does no I/O: it acts through its Outlet and the nodes, which must not call back, and tells its
/// Listener.
class Dispatcher : public Node::Listener, private Sampling::Hands {
  public:
    class Outlet : public Requests::Outlet, public ProgramLookup {
      public:
        /// Runs a shell command for the client, with a text as its input. Its output and its end
        /// come back through userProgramOutput and userProgramEnded. A client has one at a time.
        virtual void startUserProgram(int client, const std::string& command,
                                      const std::string& input) = 0;
        /// Kills that program, whose output and end are then not reported.
        virtual void stopUserProgram(int client) = 0;
    };

    class Listener {
      public:
        virtual ~Listener() = default;
        /// The clients have done their part of the request. When no other is waited for, all output
        /// of the request was sent, and the request is forgotten after this call.
        virtual void answered(const ClientSet& clients, const Request& request) = 0;
        /// Clients of the request wait for an answer of the user; a record has named them.
        virtual void asks(const Request& request) = 0;
        /// The rows of a report that may become groups are known (Request::groupNames); of a stat,
        /// the places, those with the fewest clients first.
        virtual void located(const Request& request, const std::vector<ClientSet>& places) = 0;
        /// This line is typed at the clients' debuggers, for a user, by a user's script, or as a
        /// step of sampling.
        virtual void typed(const ClientSet& clients, const std::string& line,
                           Clock::time_point now) = 0;
        /// The clients have printed these lines.
        virtual void printed(const ClientSet& clients, const std::vector<std::string>& lines,
                             Clock::time_point now) = 0;
    };

    /// Clients 0 to clients - 1, all idle. The driver, the node, the outlet and the listener must
    /// outlive this.
    Dispatcher(int clients, const Driver& driver, Node& node, Outlet& out, Listener& told);

    /// Replaces the clients by 0 to count - 1, all idle and of the first node; before a console has
    /// joined.
    void setClients(int count);
    /// The clients are those of another node, which must outlive this.
    void setNode(const ClientSet& clients, Node& node) { nodes.set(clients, node); }

    /// Adds an idle client; no number is used twice.
    void addClient(int id);
    void consoleJoined(int console) { requests.consoleJoined(console); }
    /// The console's commands go on and keep their clients busy; its user's programs are stopped.
    void consoleLeft(int console);

    /// Begins a console's command, whose clients are all idle. Gives back what is wrong with it;
    /// nothing when it has begun.
    std::optional<std::string> start(Request request, Clock::time_point now);
    /// Puts the report of a request through its filter. The first of the clients, which must be
    /// idle, is busy until the filter has ended.
    void filterReport(Request request, Clock::time_point now);
    /// Interrupts the debuggers of those clients that work, and stops the programs that run for
    /// them.
    void interrupt(const ClientSet& clients, Clock::time_point now);
    /// Types an answer at those of the clients that wait for one; false when none does.
    bool reply(const ClientSet& clients, const std::string& text, Clock::time_point now);
    /// Gives the client's request to another console.
    void adopt(int client, int console);
    /// Where the client's task stood still last; empty: it is not known.
    std::string placeOf(int client) const { return stopPlaces.of(client); }
    /// Whether its debugger keeps it from ending its job.
    bool isKept(int client) const { return stopPlaces.isKept(client); }
    /// The request that the client works on; null: none.
    const Request* requestOf(int client) const { return at(client).request; }
    /// The line that the client's debugger was given for that, by its script perhaps; empty: none.
    std::string lineOf(int client) const;
    /// The console for which the client works, or worked last; 0 for none.
    int consoleOf(int client) const { return has(client) ? at(client).console : 0; }
    /// Sends all output that was gathered for a console's requests.
    void flushAll(int console) { requests.flushAll(console); }
    /// Says something about clients to one console.
    void say(int console, const std::string& cmd, const ClientSet& about,
             const std::string& text) const {
        remarks.say(console, cmd, about, text);
    }
    /// The same, below what the console's clients have printed.
    void announce(int console, const ClientSet& about, const std::string& text);

    void userProgramOutput(int client, std::string_view text, Clock::time_point now);
    void userProgramEnded(int client, const std::string& problem, Clock::time_point now);
    bool userProgramMayTalk(int client) const;
    /// The client's debugger has ended, and its node has said its last words: sends them. Its
    /// request still waits for it until remove.
    void clientGone(int client);
    /// A client that is gone has done its part of its request.
    void remove(int client, Clock::time_point now);

    std::optional<Clock::time_point> deadline() const { return requests.deadline(); }
    void tick(Clock::time_point now);

    // Node::Listener
    void gathered(int work, Clock::time_point now) override;
    void said(int work, const ClientSet& clients, std::vector<std::string> lines,
              Clock::time_point now) override {
        stopPlaces.said(clients, lines);
        listener.printed(clients, lines, now);
        hear(work, clients, lines, now, Folder::WHOLE);
    }
    void saidPart(int work, const ClientSet& clients, const LineCutter::Piece& part,
                  Clock::time_point now) override;
    void captured(int work, int client, const std::string& text) override;
    void stacks(int work, const StackTree& tree) override;
    void answered(int work, const ClientSet& clients, Clock::time_point now) override;
    void asks(int work, const ClientSet& clients, const std::string& question,
              Clock::time_point now) override;

  private:
    struct Member {
        Request* request = nullptr; // the command it works on; null: it is idle
        int console = 0;            // the owner of its present or last command; 0: none
    };
    /// A program of the user's for one client, and what it printed.
    struct Program {
        bool runs = false;
        std::string typed;              // of its script: waits for the debugger's answer
        std::deque<std::string> script; // lines that are not carried out yet
        LineCutter lines;

        bool works() const { return runs || !typed.empty(); }
    };

    const Driver& driver;
    Node& firstNode;
    Outlet& outlet;
    Listener& listener;
    std::vector<Member> members;
    ClientNodes nodes;
    std::map<int, Program> programs; // of clients whose request needs one
    Requests requests;
    StopPlaces stopPlaces{driver};
    const Remarks remarks;

    bool has(int client) const { return nodes.has(client); }
    Member& at(int client) { return members[static_cast<std::size_t>(client)]; }
    const Member& at(int client) const { return members[static_cast<std::size_t>(client)]; }

    void type(const ClientSet& clients, const std::string& line, Clock::time_point now);
    Request& place(Request wanted, const ClientSet& clients, Clock::time_point now);
    void startProgram(int client, const std::string& command, const std::string& input);
    void stopProgram(int client);
    bool programRuns(int client) const;
    void advance(int client, Clock::time_point now);
    void conclude(int client);
    void report(Request& request, std::optional<int> last);
    void completed(Request& request, const ClientSet& clients);
    void finished(Request& request, ClientSet clients);
    void sampled(Request& request, Clock::time_point now);

    // Sampling::Hands
    void take(const ClientSet& clients, const Work& work, const std::string& line,
              Clock::time_point now) override;
    void stop(const ClientSet& clients, Clock::time_point now) override;

    Request* outputOf(int client, int work);
    void hear(int work, const ClientSet& clients, const std::vector<std::string>& lines,
              Clock::time_point since, Folder::Cut cut);
    static void deliver(Request& request, int client, const std::string& text,
                        Clock::time_point now);

    void tellOverdue(Request& request, Clock::time_point now);
};

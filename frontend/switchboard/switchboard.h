#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/localnode.h"
#include "backend/folding/stacktree.h"
#include "backend/os/clock.h"
#include "common/clientset.h"
#include "common/command.h"
#include "common/data.h"
#include "common/groupnames.h"
#include "common/reply.h"
#include "frontend/switchboard/crashedtasks.h"
#include "frontend/switchboard/dispatcher.h"
#include "frontend/switchboard/groups.h"
#include "frontend/switchboard/kepttasks.h"
#include "frontend/switchboard/owncommand.h"
#include "frontend/switchboard/stoppers.h"

#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Connects consoles with clients: knows the groups, decides which console may ask which clients
/// for what, and gives each console the single answer that it waits for. What the clients do is the
/// Dispatcher's.
///
/// Does no I/O: it is told what happened and at what time, and acts through its Outlet. Calls that
/// lead to calls of the Outlet must not come back into the switchboard. The clients are this
/// process's, unless setNode says otherwise; those of other nodes are heard by Node::Listener.
class Switchboard : public Node::Listener, private Dispatcher::Listener {
  public:
    /// What the switchboard does to the world.
    class Outlet : public Dispatcher::Outlet, public LocalNode::Outlet, public Stoppers::Outlet {
      public:
        using Dispatcher::Outlet::toConsole;
        virtual void toConsole(int console, const Reply& reply) = 0;
        /// Which process the client's is, in one line.
        virtual std::string describe(int client) = 0;
        /// Who waits for whom in MPI, in rows about any clients.
        virtual std::vector<StackTree::Row> waits() = 0;
        /// The session is over: a console asked for it, or the last client is gone.
        virtual void sessionOver() = 0;
        /// Has tick called at this time, in place of the one told before; nothing: not at all.
        virtual void wakeAt(std::optional<Clock::time_point> time) = 0;
    };

    /// Clients 0 to clients - 1, all idle. The driver and the outlet must outlive this.
    Switchboard(int clients, const Driver& driver, Outlet& out);

    /// Replaces the clients by 0 to count - 1, all idle; before a console has joined.
    void setClients(int count);

    /// The clients are those of a node, which must outlive this.
    void setNode(const ClientSet& clients, Node& node) { dispatcher.setNode(clients, node); }

    /// Consoles have numbers from 1 up; a number is used once.
    void consoleJoined(int console);
    void consoleLeft(int console);
    /// A record from the console; throws BrokenConnection for one that no console sends.
    void command(int console, const Command& command, Clock::time_point now);

    /// What a client of this process printed, without its prompts.
    void output(int client, std::string_view text, Clock::time_point now) {
        local.output(client, text, now);
        tellDeadline();
    }
    void prompted(int client, Clock::time_point now) {
        local.prompted(client, now);
        tellDeadline();
    }
    /// The client's debugger tells that its task runs from now on, or stands still.
    void runs(int client, bool nowRuns) { local.runs(client, nowRuns); }
    /// Adds an idle client, whose number was never used; the text names its process.
    void clientForked(int client, const std::string& process);
    /// Tells all consoles something about clients.
    void tell(const ClientSet& clients, const std::string& text);
    /// The client's debugger has ended; all its output was handed over before.
    void clientGone(int client, Clock::time_point now);

    /// What the user's program for a client prints, and its end; "" or what went wrong.
    void userProgramOutput(int client, std::string_view text, Clock::time_point now) {
        dispatcher.userProgramOutput(client, text, now);
        tellDeadline();
    }
    void userProgramEnded(int client, const std::string& problem, Clock::time_point now) {
        dispatcher.userProgramEnded(client, problem, now);
        tellDeadline();
    }
    /// Whether that program is a script.
    bool runsScript(int client) const {
        const Request* request = dispatcher.requestOf(client);
        return request && request->kind == Command::SCRIPTCLIENT;
    }
    /// Whether there is room for more of its output.
    bool userProgramMayTalk(int client) const { return dispatcher.userProgramMayTalk(client); }

    /// Tells all consoles something that is of no client in particular.
    void announce(const std::string& text);

    // Node::Listener
    void gathered(int work, Clock::time_point now) override { dispatcher.gathered(work, now); }
    void said(int work, const ClientSet& clients, std::vector<std::string> lines,
              Clock::time_point now) override {
        dispatcher.said(work, clients, std::move(lines), now);
        tellDeadline();
    }
    void saidPart(int work, const ClientSet& clients, const LineCutter::Piece& part,
                  Clock::time_point now) override {
        dispatcher.saidPart(work, clients, part, now);
        tellDeadline();
    }
    void captured(int work, int client, const std::string& text) override {
        dispatcher.captured(work, client, text);
    }
    void stacks(int work, const StackTree& tree) override { dispatcher.stacks(work, tree); }
    void answered(int work, const ClientSet& clients, Clock::time_point now) override {
        dispatcher.answered(work, clients, now);
        tellDeadline();
    }
    void asks(int work, const ClientSet& clients, const std::string& question,
              Clock::time_point now) override {
        dispatcher.asks(work, clients, question, now);
        tellDeadline();
    }

    /// Does what is due: what was gathered leaves, interrupts are answered.
    void tick(Clock::time_point now);

    /// The commands come from a script: none is to wait for ever for a task that is
    /// kept from ending its job.
    void runsUnattended() {
        kept.begin();
        crashed.begin();
    }
    /// The tasks that were kept from ending their job, by what would have ended it; none when
    /// commands come from somewhere else.
    const std::map<std::string_view, ClientSet>& keptTasks() const { return kept.all(); }

    const Groups& groups() const { return table; }
    /// Where the client's task stood still last, "search (ring.cpp:41)"; empty: it is not known.
    std::string placeOf(int client) const { return dispatcher.placeOf(client); }
    bool isKept(int client) const { return dispatcher.isKept(client); }
    /// The console for which the client works, or worked last; 0 for none.
    int ownerOf(int client) const { return dispatcher.consoleOf(client); }

  private:
    struct Console {
        std::string group = GroupNames::all;
        /// How many READYs the console has not followed with its FILTERED yet.
        int filteredDue = 0;
        /// When the interrupts without an answer get one at the latest, and those of their clients
        /// that still work.
        std::deque<Clock::time_point> interrupts;
        ClientSet interrupted;
        /// How many of its requests are in flight, and the numbers of those that it waits for: the
        /// last one, or those that work in the group to which it has switched.
        int open = 0;
        std::set<int> awaited;
    };

    Outlet& outlet;
    Groups table;
    std::map<int, Console> consoles;
    LocalNode local;
    Dispatcher dispatcher;
    Stoppers stoppers;
    KeptTasks kept;
    CrashedTasks crashed;
    std::optional<Clock::time_point> told; // the last wakeAt

    void carryOut(int console, const Command& command, Clock::time_point now);
    void clientCommand(int console, const Command& command, Clock::time_point now);
    void tellRows(Request request, OwnCommand::Name what, Clock::time_point now);
    void count(const Request& request);
    void interruptMembers(int console, const Command& command, Clock::time_point now);
    void answerQuestion(int console, const Command& command, Clock::time_point now);
    void switchGroup(int console, const std::string& name);
    void enter(int number, Console& console, const std::string& group);
    void groupCommand(int console, const Command& command);
    ClientSet pendingOf(int console) const;
    ClientSet workingFor(int console, const ClientSet& members) const;

    // Dispatcher::Listener
    void answered(const ClientSet& clients, const Request& request) override;
    void located(const Request& request, const std::vector<ClientSet>& places) override;
    void typed(const ClientSet& clients, const std::string& line, Clock::time_point now) override {
        kept.typed(clients, line, now);
        crashed.typed(clients, line, now);
    }
    void printed(const ClientSet& clients, const std::vector<std::string>& lines,
                 Clock::time_point now) override {
        kept.said(clients, lines, now);
        crashed.said(clients, lines, now);
    }
    void asks(const Request& request) override;

    bool worksHere(const Request& request, int number, const Console& console) const;
    void sendReady(int number, Console& console);
    void checkInterrupt(int number, Console& console);
    void leaveVanishedGroup(int number, Console& console);
    std::optional<Clock::time_point> deadline() const;
    void tellDeadline();
};

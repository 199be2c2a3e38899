#pragma once

#include "common/clientset.h"
#include "common/command.h"
#include "common/data.h"
#include "common/reply.h"
#include "frontend/aggregator.h"
#include "frontend/clock.h"
#include "frontend/debugger.h"
#include "frontend/groups.h"
#include "frontend/linecutter.h"
#include "frontend/stacktree.h"

#include <deque>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Connects consoles with clients: who works for whom, what output belongs to which command, and
/// which answer each console waits for.
///
/// Does no I/O: it is told what happened and at what time, and acts through its Outlet. Calls that
/// lead to calls of the Outlet must not come back into the switchboard.
class Switchboard {
  public:
    /// What the switchboard does to the world.
    class Outlet {
      public:
        virtual ~Outlet() = default;
        virtual void toConsole(int console, const Reply& reply) = 0;
        virtual void toConsole(int console, const Data& data) = 0;
        /// Types a line, given without its newline, at the client's debugger.
        virtual void toClient(int client, const std::string& line) = 0;
        /// Sends the client's debugger SIGINT.
        virtual void interrupt(int client) = 0;
        /// Runs a command of the shell for the client, with a text as its input; what it prints and
        /// its end come back through helperOutput and helperEnded. One at a time for a client.
        virtual void startHelper(int client, const std::string& command,
                                 const std::string& input) = 0;
        /// Kills it; it is not heard of any more.
        virtual void stopHelper(int client) = 0;
        /// Whether a program of this name can be run.
        virtual bool isProgram(const std::string& name) = 0;
        /// Which process the client's is, in one line.
        virtual std::string describe(int client) = 0;
        /// The session is over: a console asked for it, or the last client is gone.
        virtual void sessionOver() = 0;
    };

    /// Clients 0 to clients - 1, all idle. The driver and the outlet must outlive this.
    Switchboard(int clients, const Debugger& driver, Outlet& out);

    /// Consoles have numbers from 1 up; a number is used once.
    void consoleJoined(int console);
    void consoleLeft(int console);
    /// A record of this console.
    void command(int console, const Command& command, Clock::time_point now);

    /// What a client printed, without its prompts.
    void output(int client, std::string_view text, Clock::time_point now);
    void prompted(int client, Clock::time_point now);
    /// The client's debugger has ended; all its output was handed over before.
    void clientGone(int client, Clock::time_point now);

    /// What a program prints that works for a client, and its end.
    void helperOutput(int client, std::string_view text, Clock::time_point now);
    void helperEnded(int client, const std::string& problem, Clock::time_point now);
    /// Whether there is room for more of its output.
    bool helperMayTalk(int client) const;

    /// When tick wants to be called; nothing when it need not.
    std::optional<Clock::time_point> deadline() const;
    void tick(Clock::time_point now);

    const Groups& groups() const { return table; }
    /// The console for which the client works, or worked last; 0 for none.
    int ownerOf(int client) const { return clients[static_cast<std::size_t>(client)].console; }

  private:
    /// A command in flight, or what a console's idle clients say.
    struct Job {
        int console = 0; // 0: it has left
        std::string text;
        ClientSet waiting;
        Command::Type kind = Command::CLIENT;
        bool instant = false;
        /// What each client's output goes through, or the whole report of stat; empty: nothing.
        std::string filter;
        /// Of stat: the stacks of those who have answered, and its options.
        StackTree stacks;
        bool withPlaces = false;
        bool innermostOnly = false;
        bool reported = false;
        /// What was fed to the filter of stat, with the clients of each line.
        std::map<std::string, StackTree::Row> fed;
        ClientSet members;
        /// Those of whom it was said that they wait for an answer.
        ClientSet asking;
        std::optional<Clock::time_point> overdue; // when it is to be said who has not answered
        Aggregator gathered;
        std::optional<Clock::time_point> due; // the gathered output must leave then
    };
    using Jobs = std::list<Job>;

    struct Client {
        enum State { IDLE, RUNNING, SETTLING, GONE };
        State state = IDLE;
        LineCutter cutter;
        int lineNo = 0;
        Job* job = nullptr; // the command it works on
        int console = 0;
        bool typing = false;            // the debugger has a command and has not prompted
        bool helped = false;            // a helper works for it
        bool filtered = false;          // its output has gone to the filter
        std::string captured;           // its output, which does not go to the console as it stands
        std::deque<std::string> script; // what its script printed and is not carried out yet
        LineCutter helperLines;
        int answerLines = 0; // that the debugger printed since a line was typed
        int signalled = 0;   // SIGINTs of which nothing shows yet that they arrived
        std::optional<Clock::time_point> signalledAt; // since its command was typed
        bool onlyQuit = false; // the answer so far is the echo of an interrupt
        Clock::time_point settled;
    };

    struct Console {
        std::string group = "all";
        /// How many READYs were sent for which the console has not assigned its FILTERED yet.
        int filteredDue = 0;
        /// Interrupts without their answers: until when each, and who still works of those whom
        /// they were for.
        std::deque<Clock::time_point> interrupts;
        ClientSet interrupted;
        /// The commands that the console waits for, or whose clients are in its group.
        std::list<const Job*> awaited;
        Job idle;
    };

    const Debugger& debugger;
    Outlet& outlet;
    Groups table;
    std::vector<Client> clients;
    std::map<int, Console> consoles;
    Jobs jobs;
    /// Who may be settling, and until when; the times ascend. One that has answered meanwhile is
    /// still named.
    std::deque<std::pair<Clock::time_point, int>> settling;

    Client& at(int client) { return clients[static_cast<std::size_t>(client)]; }

    void startJob(int console, const Command& command, const ClientSet& members,
                  Clock::time_point now);
    std::optional<std::string> prepare(Job& job, std::string& line);
    void tellWho(int console, const std::string& text, const ClientSet& members);
    void type(int client, const std::string& line);
    void advance(int client, Clock::time_point now);
    void stopHelper(int client);
    static bool captures(const Client& client);
    static void capture(Client& client, const std::string& text);
    void readStacks(int client, const std::string& text);
    void report(Job& job, int last);
    ClientSet pendingOf(int console) const;
    void remark(Job& job, const ClientSet& about, const std::string& text);
    void tellAsking(Job& job, Clock::time_point now);
    void tellOverdue(Job& job, Clock::time_point now);
    void interruptMembers(int console, const Command& command, Clock::time_point now);
    void answerQuestion(int console, const Command& command);
    void switchGroup(int console, const std::string& name);
    void groupCommand(int console, const Command& command);

    Job& jobOf(Client& client);
    void addLine(int client, std::string text, Clock::time_point now);
    void deliver(int client, std::string text, Clock::time_point now);
    void takePartial(int client);
    void flush(Job& job);
    void flushDue(Job& job, Clock::time_point now);
    void answered(int client, Clock::time_point now);
    void completed(int client);
    void finish(Job& job);
    void sendReady(int number, Console& console);
    void checkInterrupt(int number, Console& console);
    void leaveVanishedGroup(int number, Console& console);
    void say(int console, const std::string& cmd, const ClientSet& about, const std::string& text,
             int lineNo = 0);
    bool worksIn(const Job& job, const ClientSet& members) const;
};

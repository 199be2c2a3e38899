#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/exchange.h"
#include "backend/folding/linecutter.h"
#include "backend/os/clock.h"
#include "common/clientset.h"
#include "common/data.h"
#include "frontend/switchboard/requests.h"

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The clients at work: types the requests' lines at their debuggers, feeds what answers to the
/// programs that work for a client, and gathers what is output. Knows
/// consoles by their numbers only; what their state machines need is the Switchboard's.
///
/// Does no I/O: it acts through its Outlet, which must not call back, and tells its Listener.
class Dispatcher {
  public:
    class Outlet : public Requests::Outlet, public ProgramLookup {
      public:
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
    };

    class Listener {
      public:
        virtual ~Listener() = default;
        /// The client has done its part; when the request has nobody to wait for any more, all its
        /// output was sent, and it is forgotten after this.
        virtual void answered(int client, const Request& request) = 0;
        /// Clients of the request wait for an answer of the user, who has been told.
        virtual void asks(const Request& request) = 0;
    };

    /// Clients 0 to clients - 1, all idle. The driver, the outlet and the listener must outlive
    /// this.
    Dispatcher(int workers, const Driver& driver, Outlet& out, Listener& told);

    /// Other clients than the constructor was told, all idle; before a console has joined.
    void setClients(int count) { workers = std::vector<Worker>(static_cast<std::size_t>(count)); }

    /// A new client, idle; no number is used twice.
    void addClient(int id);
    void consoleJoined(int console) { requests.consoleJoined(console); }
    /// What it started goes on and keeps its clients busy, but its own programs end with it.
    void consoleLeft(int console);

    /// Begins what a console asks for; all clients are idle. Gives back what is wrong with it.
    std::optional<std::string> start(Request request, Clock::time_point now);
    /// Puts a request's report through its filter, for which the first of its clients is busy; that
    /// one is idle.
    void filterReport(Request request, Clock::time_point now);
    /// Interrupts the debuggers of those who work, and ends what works for them.
    void interrupt(const ClientSet& workers, Clock::time_point now);
    /// Gives an answer to those of the clients who wait for one; whether there were any.
    bool reply(const ClientSet& workers, const std::string& text, Clock::time_point now);
    /// Gives the client's request to another console.
    void adopt(int client, int console);
    /// The request that the client works on; null: none.
    const Request* requestOf(int client) const { return at(client).request; }
    /// The console for which the client works, or worked last; 0 for none.
    int consoleOf(int client) const { return has(client) ? at(client).console : 0; }
    /// Sends all that was gathered for a console's requests.
    void flushAll(int console) { requests.flushAll(console); }
    /// Says something about clients to one console.
    void say(int console, const std::string& cmd, const ClientSet& about, const std::string& text,
             int lineNo = 0);
    /// The same, behind what the clients have printed.
    void announce(int console, const ClientSet& about, const std::string& text);

    void output(int client, std::string_view text, Clock::time_point now);
    void prompted(int client, Clock::time_point now);
    void helperOutput(int client, std::string_view text, Clock::time_point now);
    void helperEnded(int client, const std::string& problem, Clock::time_point now);
    bool helperMayTalk(int client) const;
    /// The client's debugger has ended: sends what it still said, then nothing more is heard of it.
    /// Its request waits for it until it is removed.
    void clientGone(int client);
    void remove(int client);

    std::optional<Clock::time_point> deadline() const;
    void tick(Clock::time_point now);

  private:
    struct Worker {
        bool gone = false;
        Request* request = nullptr; // the command it works on
        int console = 0;
        Exchange exchange;
        LineCutter cutter;
        int lineCount = 0;              // of an idle client; of others their request has it
        bool helped = false;            // a program works for it
        bool filtered = false;          // its output has gone to the filter
        std::string captured;           // its output, which does not go to the console as it stands
        std::deque<std::string> script; // what its script printed and is not carried out yet
        LineCutter helperLines;
    };

    const Driver& driver;
    Outlet& outlet;
    Listener& listener;
    std::vector<Worker> workers;
    Requests requests;
    /// Who may be settling, and until when; the times ascend. One that has answered meanwhile is
    /// still named.
    std::deque<std::pair<Clock::time_point, int>> settling;

    bool has(int client) const { return static_cast<std::size_t>(client) < workers.size(); }
    Worker& at(int client) { return workers[static_cast<std::size_t>(client)]; }
    const Worker& at(int client) const { return workers[static_cast<std::size_t>(client)]; }

    void assign(int id, Request& request);
    void type(int client, const std::string& line);
    void advance(int client, Clock::time_point now);
    void stopHelper(int client);
    static bool captures(const Worker& client) {
        return client.request && client.request->captures();
    }
    static void capture(Worker& client, const std::string& text);
    void report(Request& request, std::optional<int> last);
    void completed(int client);

    Request& requestFor(const Worker& client);
    void addLine(int client, std::string text, Clock::time_point now);
    void deliver(int client, std::string text, Clock::time_point now);
    void takePartial(int client);
    void flushDue(Request& request, Clock::time_point now);
    int lastLine(const ClientSet& ids);
    int& lineCount(int client);

    void remark(Request& request, const ClientSet& about, const std::string& text);
    void tellAsking(Request& request, Clock::time_point now);
    void tellOverdue(Request& request, Clock::time_point now);
};

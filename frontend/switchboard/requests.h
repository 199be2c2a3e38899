#pragma once

#include "backend/os/clock.h"
#include "common/data.h"
#include "frontend/switchboard/request.h"

#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

/// The requests in flight, and one for the output of each console's idle clients. Keeps their
/// deadlines, and sends their output in records to every console. Does no I/O.
class Requests {
  public:
    class Outlet {
      public:
        virtual ~Outlet() = default;
        virtual void toConsole(int console, const Data& data) = 0;
        /// The same for several consoles at once.
        virtual void toConsoles(const std::vector<int>& consoles, const Data& data) = 0;
    };

    /// The outlet must outlive this.
    explicit Requests(Outlet& out) : outlet(out) {}

    void consoleJoined(int console);
    /// What the console started has no owner from now on.
    void consoleLeft(int console);
    bool noConsoles() const { return idle.empty(); }

    /// Adds a request and numbers it. The reference holds until the request is forgotten.
    Request& add(Request request);
    void forget(const Request& request);
    /// The request of this number; null when it was forgotten.
    Request* find(int number);
    /// The request for the output of idle clients that last worked for this console; when the
    /// console has left, that of another one. There must be a console.
    Request& idleOf(int console);

    /// Sends all output that was gathered.
    void flush(Request& request);
    void flushIdle();
    void flushAll(int console);
    /// To be called when lines were gathered: sends all of much, and what is not held at all.
    void flushReady(Request& request);
    /// Sends what has waited long enough.
    void flushDue(Request& request, Clock::time_point now);
    /// The request is over: what its console's idle clients say from now on stands behind it.
    void continueIdle(const Request& request);

    /// To be called when the request's deadlines have changed, its gathered output's among them.
    void arm(Request& request);
    std::optional<Clock::time_point> deadline() const;
    /// A request whose deadline has passed, and which is to be armed again; null: there is none.
    Request* due(Clock::time_point now);

  private:
    Outlet& outlet;
    std::map<int, Request> requests; // by number
    std::map<int, int> idle;         // the numbers of those for idle clients, by console
    int lastNumber = 0;
    std::set<std::pair<Clock::time_point, int>> deadlines;

    void broadcast(const Request& request, Folder::Lines lines) const;
    void disarm(Request& request);
};

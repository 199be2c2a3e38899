#pragma once

#include "backend/os/clock.h"
#include "common/data.h"
#include "frontend/switchboard/request.h"

#include <map>
#include <optional>
#include <set>
#include <utility>

/// The requests in flight and what the consoles' idle clients say: when each must be looked at, and
/// the records that its output leaves in, which every console gets. Does no I/O.
class Requests {
  public:
    class Outlet {
      public:
        virtual ~Outlet() = default;
        virtual void toConsole(int console, const Data& data) = 0;
    };

    /// The outlet must outlive this.
    explicit Requests(Outlet& out) : outlet(out) {}

    void consoleJoined(int console);
    /// Nobody owns any more what it started.
    void consoleLeft(int console);
    bool noConsoles() const { return idle.empty(); }

    /// Takes a request up under a number of its own; it stays where it is until it is forgotten.
    Request& add(Request request);
    void forget(const Request& request);
    /// Where goes what idle clients say that worked for this console last: to it, or to another
    /// one when it has left. There must be a console.
    Request& idleOf(int console);

    /// Sends what was gathered.
    void flush(Request& request);
    void flushIdle();
    void flushAll(int console);
    /// Sends much output before its time, but keeps the lines that some clients may still say.
    void flushLarge(Request& request);
    /// Sends what has waited long enough, and sets when to look again.
    void flushDue(Request& request, Clock::time_point now);

    /// The request is to be looked at when what it has said since then has waited long enough.
    void awaitWindow(Request& request, Clock::time_point since);
    /// Takes its deadlines as they are now.
    void arm(Request& request);
    std::optional<Clock::time_point> deadline() const;
    /// One whose deadline has passed; null when there is none.
    Request* due(Clock::time_point now);

  private:
    Outlet& outlet;
    std::map<int, Request> requests; // by number
    std::map<int, int> idle;         // the numbers of what idle clients say, by console
    int lastNumber = 0;
    std::set<std::pair<Clock::time_point, int>> deadlines;

    void broadcast(const std::optional<Data>& record) const;
};

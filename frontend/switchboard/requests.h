#pragma once

#include "backend/os/clock.h"
#include "common/data.h"
#include "frontend/switchboard/request.h"

#include <map>
#include <optional>
#include <set>
#include <utility>

/// The requests in flight, and one for the output of each console's idle clients. Keeps their
/// deadlines, and sends their output in records to every console. Does no I/O.
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
    /// Sends much output before its time, but keeps the lines that some clients may still say.
    void flushLarge(Request& request);
    /// Sends what has waited long enough, and sets when the rest is due.
    void flushDue(Request& request, Clock::time_point now);

    /// Output of this age is due a window later, unless older output is due before.
    void awaitWindow(Request& request, Clock::time_point since);
    /// To be called when the request's deadlines have changed.
    void arm(Request& request);
    std::optional<Clock::time_point> deadline() const;
    /// A request whose deadline has passed; null: there is none.
    Request* due(Clock::time_point now);

  private:
    Outlet& outlet;
    std::map<int, Request> requests; // by number
    std::map<int, int> idle;         // the numbers of those for idle clients, by console
    int lastNumber = 0;
    std::set<std::pair<Clock::time_point, int>> deadlines;

    void broadcast(const std::optional<Data>& record) const;
};

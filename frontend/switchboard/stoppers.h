#pragma once

#include "backend/os/clock.h"
#include "common/clientset.h"
#include "frontend/switchboard/dispatcher.h"
#include "frontend/switchboard/request.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// "vex interrupt": consoles that stop what others have running, each of which then waits until
/// those clients stand still; and the others, which are free when theirs do. Does no I/O.
class Stoppers {
  public:
    class Outlet {
      public:
        virtual ~Outlet() = default;
        /// Which console it is, and where.
        virtual std::string describeConsole(int console) {
            return "console " + std::to_string(console);
        }
    };

    /// Both must outlive this.
    Stoppers(Dispatcher& worked, Dispatcher::Outlet& out, Outlet& consoles)
        : dispatcher(worked), outlet(out), names(consoles) {}

    /// Tells the request's console what others have running in its group, and interrupts that;
    /// whether there is anything to wait for, which `stopped` or `takeDue` ends.
    bool stop(const Request& request, Clock::time_point now);
    /// The console waits no longer.
    void forget(int console) { waiting.erase(console); }
    void consoleLeft(int console) {
        forget(console);
        std::erase_if(stopping, [=](const Stopping& each) { return each.owner == console; });
    }
    /// Clients have stopped: the consoles that need not wait any more.
    std::vector<int> stopped(const ClientSet& clients);
    /// Whether these were the last clients of a console that others have stopped.
    bool frees(int console, const ClientSet& clients);
    /// Clients have not stopped in time: tells the consoles that wait for them, and gives these,
    /// which wait no longer.
    std::vector<int> takeDue(Clock::time_point now);
    std::optional<Clock::time_point> deadline() const;

  private:
    struct Wanted {
        std::string command;
        ClientSet clients;
        Clock::time_point until;
    };

    // What was interrupted of a console's, whether or not somebody still waits for it.
    struct Stopping {
        int owner;
        ClientSet clients;
        Clock::time_point until;
    };

    Dispatcher& dispatcher;
    Dispatcher::Outlet& outlet;
    Outlet& names;
    std::map<int, Wanted> waiting; // by console
    std::vector<Stopping> stopping;
};

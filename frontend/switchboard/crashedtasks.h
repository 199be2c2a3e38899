#pragma once

#include "backend/drivers/driver.h"
#include "backend/os/clock.h"
#include "common/clientset.h"
#include "frontend/switchboard/dispatcher.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

/// Tasks that have crashed and stand in their debuggers, in a session whose commands come from a
/// script. Others may wait for them for ever, and with them the script; or they have work to do
/// for hours, so that nobody interrupts them: after a while a line tells, once a command, for whom
/// the script waits and what lets it go on. Does no I/O.
class CrashedTasks {
  public:
    /// Both must outlive this.
    CrashedTasks(const Driver& dialect, Dispatcher& worked) : driver(dialect), dispatcher(worked) {}

    /// The commands come from a script. Until then nothing is heard.
    void begin() { begun = true; }
    /// Debuggers get this line.
    void typed(const ClientSet& clients, const std::string& line, Clock::time_point now);
    /// Debuggers have printed these lines.
    void said(const ClientSet& clients, const std::vector<std::string>& lines,
              Clock::time_point now);
    std::optional<Clock::time_point> deadline() const { return due; }
    /// Of all these clients, tells who is waited for, when it is time.
    void tick(const ClientSet& clients, Clock::time_point now);

  private:
    const Driver& driver;
    Dispatcher& dispatcher;
    bool begun = false;
    std::map<std::string, ClientSet, std::less<>> standing; // by signal
    std::optional<Clock::time_point> due;
    std::set<int> told; // the numbers of requests

    void leave(const ClientSet& clients);
    void tell(int console, const ClientSet& crashed, const ClientSet& running);
};

#pragma once

#include "backend/drivers/driver.h"
#include "backend/os/clock.h"
#include "common/clientset.h"
#include "frontend/switchboard/dispatcher.h"

#include <optional>
#include <string>
#include <vector>

/// Tasks that are kept at MPI_Abort in a session whose commands come from a script: there nobody
/// sees it, and the command would wait for ever for those that wait for a kept task. After a
/// moment, in which others may come to MPI_Abort as well, those that work on for the same console
/// are interrupted. Does no I/O.
class KeptTasks {
  public:
    /// Both must outlive this.
    KeptTasks(const Driver& dialect, Dispatcher& worked) : driver(dialect), dispatcher(worked) {}

    /// The commands come from a script. Until then nothing is heard.
    void begin() { begun = true; }
    /// Debuggers have printed these lines.
    void said(const ClientSet& clients, const std::vector<std::string>& lines,
              Clock::time_point now);
    std::optional<Clock::time_point> deadline() const { return due; }
    /// Of all these clients, interrupts whom there is to interrupt, when it is time.
    void tick(const ClientSet& clients, Clock::time_point now);
    /// All that were ever kept.
    const ClientSet& all() const { return kept; }

  private:
    const Driver& driver;
    Dispatcher& dispatcher;
    bool begun = false;
    ClientSet kept, fresh; // fresh: nobody was interrupted for these yet
    std::optional<Clock::time_point> due;
};

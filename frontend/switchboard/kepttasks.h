#pragma once

#include "backend/drivers/driver.h"
#include "backend/os/clock.h"
#include "common/clientset.h"
#include "frontend/switchboard/dispatcher.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Tasks that are kept from ending their job, at MPI_Abort, say, in a session whose commands come
/// from a script: there nobody sees it, and the command would wait for ever for those that wait for
/// a kept task. After a moment, in which others may come there as well, those that work on for the
/// same console are interrupted; so are those that a later command lets run while a task is kept.
/// Does no I/O.
class KeptTasks {
  public:
    /// Both must outlive this.
    KeptTasks(const Driver& dialect, Dispatcher& worked) : driver(dialect), dispatcher(worked) {}

    /// The commands come from a script. Until then nothing is heard.
    void begin() { begun = true; }
    /// Debuggers get this line.
    void typed(const ClientSet& clients, const std::string& line, Clock::time_point now);
    /// Debuggers have printed these lines.
    void said(const ClientSet& clients, const std::vector<std::string>& lines,
              Clock::time_point now);
    std::optional<Clock::time_point> deadline() const { return due; }
    /// Of all these clients, interrupts whom there is to interrupt, when it is time.
    void tick(const ClientSet& clients, Clock::time_point now);
    /// All that were ever kept, by what they were kept at (Driver::keptAt).
    const std::map<std::string_view, ClientSet>& all() const { return kept; }

  private:
    const Driver& driver;
    Dispatcher& dispatcher;
    bool begun = false;
    std::map<std::string_view, ClientSet> kept, standing; // standing: none of these has gone on
    std::optional<Clock::time_point> due;

    void leave(const ClientSet& clients);
    bool mayWait(int client) const;
};

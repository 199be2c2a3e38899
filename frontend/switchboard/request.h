#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/aggregator.h"
#include "backend/folding/node.h"
#include "backend/folding/statreport.h"
#include "backend/os/clock.h"
#include "common/clientset.h"
#include "common/command.h"
#include "frontend/switchboard/programlookup.h"

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>

/// A console's command to its clients, from its start until the last of them has answered; or the
/// output of a console's idle clients.
struct Request {
    /// Unique; later requests have higher ones.
    int number = 0;
    /// 0: the console has left.
    int console = 0;
    /// What the user has typed.
    std::string text;
    Command::Type kind = Command::CLIENT;
    /// What is typed at each client's debugger; of a script, what the shell runs.
    std::string line;
    /// What each client's output goes through, or the whole report of stat; empty: nothing.
    std::string filter;
    /// The report of stat, or of "vex who" with a filter; nothing for other commands.
    std::optional<StatReport> stat;
    /// Whether the report was handed over.
    bool reported = false;

    ClientSet members;
    /// The clients that have not answered yet; empty for the output of idle clients.
    ClientSet waiting;
    /// How many lines each of those has said.
    std::unordered_map<int, int> lineCounts;
    /// The clients that were named because they wait for an answer of the user.
    ClientSet asking;
    /// Those that are still to be named, and what the first of them asks.
    ClientSet unnamed;
    std::string question;
    Aggregator gathered;
    /// When more bytes than this are gathered, the lines leave that all clients have said.
    std::size_t limit = maxRecord;
    /// Whether that has happened.
    bool loud = false;
    /// When the gathered output must leave.
    std::optional<Clock::time_point> due;
    /// When the clients that have not answered are to be named.
    std::optional<Clock::time_point> overdue;
    /// The earlier of the two, as Requests has listed it.
    std::optional<Clock::time_point> armed;

    static constexpr std::size_t maxRecord = 1024 * 1024;

    /// The client works on it from now on.
    void await(int client) {
        waiting.insert(client);
        lineCounts[client] = 0;
    }
    /// The client has answered; gives back how many lines it has said.
    int answeredBy(int client) {
        waiting.erase(client);
        return lineCounts.extract(client).mapped();
    }
    /// How many lines every client that has not answered yet has said.
    int commonLines() const;
    bool instant() const { return kind == Command::INSTANT; }
    /// Whether the clients' output goes to the program behind the bar or into the report, and not
    /// to the console as it stands.
    bool captures() const { return stat || !filter.empty(); }

    /// What the clients' nodes are told of it.
    Work work() const;

    /// Works out from kind and text what the clients are to do. Gives back what is wrong with the
    /// text; nothing when all is well.
    std::optional<std::string> prepare(const Driver& driver, ProgramLookup& programs);

  private:
    std::optional<std::string> prepareScript(ProgramLookup& programs);
    std::optional<std::string> prepareStat(const Driver& driver, ProgramLookup& programs);
};

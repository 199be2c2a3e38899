#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/aggregator.h"
#include "backend/folding/statreport.h"
#include "backend/os/clock.h"
#include "common/clientset.h"
#include "common/command.h"
#include "frontend/switchboard/programlookup.h"

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>

/// A console's command to its clients, from its start until the last of them has answered; or what
/// a console's idle clients say.
struct Request {
    /// Ascending; no other has it.
    int number = 0;
    /// 0: it has left.
    int console = 0;
    std::string text;
    Command::Type kind = Command::CLIENT;
    /// What each client's debugger gets, or of a script the shell.
    std::string line;
    /// What each client's output goes through, or the whole report of stat; empty: nothing.
    std::string filter;
    /// Of stat.
    std::optional<StatReport> stat;
    bool reported = false;

    ClientSet members;
    /// The clients that have not answered yet; empty for what idle clients say.
    ClientSet waiting;
    /// How many lines each of those has said.
    std::unordered_map<int, int> lineCounts;
    /// Those of whom it was said that they wait for an answer.
    ClientSet asking;
    Aggregator gathered;
    /// When what was gathered is larger than this, in bytes, what needs no waiting leaves.
    std::size_t large = largeRecord;
    /// That has happened.
    bool loud = false;
    /// When the gathered output must leave.
    std::optional<Clock::time_point> due;
    /// When it is to be said who has not answered.
    std::optional<Clock::time_point> overdue;
    /// The earlier of the two, as it stands in the list of deadlines.
    std::optional<Clock::time_point> armed;

    static constexpr std::size_t largeRecord = 1024 * 1024;

    /// A client that works on it from now on; those are all its members or the only one.
    void await(int client) {
        waiting.insert(client);
        lineCounts[client] = 0;
    }
    /// The client has answered; gives back how many lines it has said.
    int answeredBy(int client) {
        waiting.erase(client);
        return lineCounts.extract(client).mapped();
    }
    /// How many lines all have said that have not answered yet.
    int commonLines() const;
    bool instant() const { return kind == Command::INSTANT; }
    /// Its clients' output is material: for the program behind the bar, or for stat.
    bool captures() const { return stat || !filter.empty(); }

    /// Works out from kind and text what the clients are to do. Gives back what is wrong with it.
    std::optional<std::string> prepare(const Driver& driver, ProgramLookup& programs);

  private:
    std::optional<std::string> prepareScript(ProgramLookup& programs);
    std::optional<std::string> prepareStat(const Driver& driver, ProgramLookup& programs);
};

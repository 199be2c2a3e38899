#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/folder.h"
#include "backend/folding/node.h"
#include "backend/folding/statreport.h"
#include "backend/folding/valuetable.h"
#include "backend/os/clock.h"
#include "common/clientset.h"
#include "common/command.h"
#include "frontend/switchboard/programlookup.h"
#include "frontend/switchboard/sampling.h"

#include <optional>
#include <string>
#include <vector>

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
    /// The report of stat and "vex values", or of "vex who" with a filter; nothing for other
    /// commands.
    std::optional<StatReport> stat;
    /// What "vex values" has found so far; nothing for other commands.
    std::optional<ValueTable> values;
    /// What groups of the report's rows are called, before their numbers; empty: there are none.
    std::string groupNames;
    /// Where that is taken several times; nothing: it is taken once.
    std::optional<Sampling> sampling;
    /// Whether the report was handed over.
    bool reported = false;

    ClientSet members;
    /// The clients that have not answered yet; empty for the output of idle clients.
    ClientSet waiting;
    /// The clients that were named because they wait for an answer of the user.
    ClientSet asking;
    /// Those that are still to be named, and what the first of them asks.
    ClientSet unnamed;
    std::string question;
    /// When they are to be named.
    std::optional<Clock::time_point> naming;
    Folder gathered;
    /// When the clients that have not answered are to be named.
    std::optional<Clock::time_point> overdue;
    /// When the next step of its sampling is due.
    std::optional<Clock::time_point> sampleDue;
    /// When Requests looks at it again.
    std::optional<Clock::time_point> armed;

    /// The clients work on it from now on.
    void await(const ClientSet& clients) {
        waiting.insert(clients);
        gathered.await(clients);
    }
    void answeredBy(const ClientSet& clients) {
        waiting.erase(clients);
        for (const int id : clients)
            gathered.answered(id);
    }
    bool instant() const { return kind == Command::INSTANT; }
    /// Whether the clients' output goes to the program behind the bar or into the report, and not
    /// to the console as it stands.
    bool captures() const { return (stat || !filter.empty()) && !(sampling && sampling->shows()); }

    /// Takes what a client has answered; false when it is no value that is asked for.
    bool takesValue(int client, const std::string& answer, const Driver& driver);
    /// All have answered: completes the report, and gives the clients of its rows, for groups.
    std::vector<ClientSet> conclude();

    /// What the clients' nodes are told of it.
    Work work() const;

    /// Works out from kind and text what the clients are to do. Gives back what is wrong with the
    /// text; nothing when all is well.
    std::optional<std::string> prepare(const Driver& driver, ProgramLookup& programs);

  private:
    std::optional<std::string> prepareScript(ProgramLookup& programs);
    static std::optional<std::string>
    prepareSamples(const std::string& option, const std::string& value, Sampling::Options& samples);
    std::optional<std::string> prepareStat(const Driver& driver, ProgramLookup& programs);
    std::optional<std::string> prepareValues(const Driver& driver, ProgramLookup& programs);
};

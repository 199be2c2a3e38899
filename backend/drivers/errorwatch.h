#pragma once

#include "backend/drivers/driver.h"
#include "backend/drivers/promptmatcher.h"
#include "common/clientset.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

/// Counts the errors that debuggers report, and takes the marks that tell of them
/// (Driver::Launch::errorMark) out of the clients' output. The end of a debugger that no command
/// has ended is an error, too. Does no I/O.
class ErrorWatch {
  public:
    /// The driver must live as long as this. The mark is the same for all clients.
    ErrorWatch(const Driver& kind, std::string mark) : driver(kind), errorMark(std::move(mark)) {}

    const std::string& mark() const { return errorMark; }
    /// Gives the output back without marks; its errors are left out when `counts` is false.
    std::string pass(int client, std::string_view text, bool counts = true);
    /// Whether the debugger of a client that is ready for its first command can tell errors.
    bool canTell(int client);
    /// A line was typed at the client's debugger.
    void typed(int client, const std::string& line);
    /// The client's debugger has ended.
    void ended(int client);
    /// A script that ran for the client has failed.
    void scriptFailed(int client) { scriptsFailed.insert(client); }

    /// Errors that were counted elsewhere.
    void add(int more, const ClientSet& whose);
    /// What was counted since the last call of this: how many, and whose.
    std::pair<int, ClientSet> take();

    /// "3 errors were reported by the debuggers of 0:1 4"; nothing when there was none.
    std::optional<std::string> verdict() const;

  private:
    struct Seen {
        explicit Seen(const std::string& mark) : matcher(mark) {}
        PromptMatcher matcher;
        std::string lineBegin; // of the unfinished line, for a driver that tells errors by lines
        std::string lastTyped;
        long marks = 0;
    };
    const Driver& driver;
    const std::string errorMark;
    std::map<int, Seen> clients;
    long errors = 0;
    ClientSet culprits;
    ClientSet scriptsFailed;

    Seen& seen(int client) { return clients.try_emplace(client, errorMark).first->second; }
    void count(int client);
    long errorLines(Seen& each, std::string_view text) const;
};

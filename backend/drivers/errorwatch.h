#pragma once

#include "backend/drivers/driver.h"
#include "backend/drivers/promptmatcher.h"
#include "common/clientset.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

/// Notices in the output of the clients that a debugger reported an error, and takes the marks out
/// that tell it (Driver::Launch::errorMark). Also an error: a debugger that ends without having
/// been told to. Does no I/O.
class ErrorWatch {
  public:
    /// The driver must live as long as this. The mark is the same for all clients.
    ErrorWatch(const Driver& driver, std::string mark)
        : debugger(driver), errorMark(std::move(mark)) {}

    const std::string& mark() const { return errorMark; }
    /// The output without marks; whether what it tells counts.
    std::string pass(int client, std::string_view text, bool counts = true);
    /// A client is ready for its first command. False when it cannot tell errors.
    bool begins(int client);
    void typed(int client, const std::string& line);
    void ended(int client);
    /// A script that ran for the client has failed.
    void scriptFailed(int client) { failed.insert(client); }

    /// "3 errors were reported by the debuggers of 0:1 4"; nothing when there was none.
    std::optional<std::string> verdict() const;

  private:
    struct Seen {
        explicit Seen(const std::string& mark) : matcher(mark) {}
        PromptMatcher matcher;
        std::string partial; // line
        std::string last;    // typed
        long marks = 0;
    };
    const Driver& debugger;
    const std::string errorMark;
    std::map<int, Seen> clients;
    long errors = 0;
    ClientSet culprits;
    ClientSet failed; // whose scripts have

    Seen& seen(int client) { return clients.try_emplace(client, errorMark).first->second; }
    void count(int client);
};

#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/stacktree.h"

#include <string>
#include <vector>

/// Reads what a debugger answers when it is asked for the stacks of all threads.
struct StackText {
    const Driver& driver;
    /// Tells calls apart by source line, too.
    bool withPlaces = false;
    /// All calls of all threads, not only what their user has written (UserStack).
    bool allCalls = false;

    /// The tree of one client's stacks, or the reason why it has none.
    StackTree parse(int client, const std::string& answer) const;

  private:
    struct Thread;
    std::vector<Thread> threads(const std::string& answer, std::string& first) const;
    std::string nameOf(const Driver::StackLine& call) const;
};

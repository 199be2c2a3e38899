#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/stacktree.h"

#include <string>

/// Reads what a debugger answers when it is asked for the stacks of all threads.
struct StackText {
    const Driver& driver;
    /// Tells calls apart by source line, too.
    bool withPlaces = false;

    /// The tree of one client's stacks, or the reason why it has none.
    StackTree parse(int client, const std::string& answer) const;

  private:
    std::string nameOf(const Driver::StackLine& call) const;
};

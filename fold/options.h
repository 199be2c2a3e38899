#pragma once

#include "display/parser.h"

#include <optional>
#include <string>
#include <vector>

/// The command line of vexfold.
struct Options {
    enum Color { AUTO, ALWAYS, NEVER };

    /// Empty: standard input.
    std::vector<std::string> files;
    /// Nothing: AUTO on a terminal, else COLLAPSED.
    std::optional<Parser::Mode> mode;
    Color color = AUTO;
    /// Empty: the label's form is found out.
    std::string label;
    bool labelsAreFiles = false;
    bool whole = false;
    bool count = false;
    bool json = false;
    bool follow = false;

    /// Reads the command line. Gives back the status to exit with, after it has printed help, the
    /// version or what is wrong; nothing when there is work to do.
    std::optional<int> parse(int argc, char** argv);
};

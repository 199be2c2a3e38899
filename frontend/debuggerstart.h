#pragma once

#include "frontend/debugger.h"

#include <string>
#include <utility>
#include <vector>

/// All that is needed to start one debugger, on this machine or on another one. A value.
struct DebuggerStart {
    using Environment = std::vector<std::pair<std::string, std::string>>;

    std::vector<std::string> argv;
    /// Added to the environment.
    Environment environment;
    /// The prompt that it shows, byte for byte.
    std::string prompt;
    /// What stands in argv for the names of the debugger's terminal and of the program's: they are
    /// known only where these are opened.
    std::string terminal;
    std::string inputTerminal;
    /// Whether it attaches to its program, which then must outlive it.
    bool attaches = false;
    /// Whether it gets the descriptors that this process was started with.
    bool inherits = false;
    /// The directory to start it in; empty: as it is.
    std::string folder;

    /// The driver gives the command line. The launch needs no names of terminals.
    static DebuggerStart of(const Debugger& driver, Debugger::Launch launch,
                            Environment environment);
    /// The command line with the names of real terminals.
    std::vector<std::string> argvFor(const std::string& ownTerminal,
                                     const std::string& programsTerminal) const;
};

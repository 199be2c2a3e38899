#pragma once

#include "backend/drivers/driver.h"

#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

/// All that is needed to start one debugger, on this machine or on another one. A value.
struct DebuggerStart {
    using Environment = std::vector<std::pair<std::string, std::string>>;

    std::vector<std::string> argv;
    /// Behind the first of these where there is a directory for an index of symbols; its path goes
    /// behind the last. None: no such index is kept.
    std::vector<std::string> indexCacheWords;
    /// Added to the environment.
    Environment environment;
    /// The prompt that the debugger shows, byte for byte.
    std::string prompt;
    /// What stands in argv for the names of the debugger's terminal and of the program's, and for
    /// the process that it attaches to: they are known only where it is started.
    std::string terminal;
    std::string inputTerminal;
    std::string process;
    /// The process to attach to, which then must outlive the debugger; 0: the debugger starts its
    /// program.
    pid_t attach = 0;
    /// Whether that process may be a shell that runs the program: the debugger then attaches to the
    /// program.
    bool throughShells = false;
    /// The core file that the debugger looks at, as the user has named it; empty: none. Such
    /// debuggers are this machine's.
    std::string core;
    /// Whether the number of its client is the rank of its task.
    bool numberIsRank = true;
    /// Whether the debugger gets the descriptors that this process was started with.
    bool inherits = false;
    /// The program's name, for its users.
    std::string program;
    /// The directory to start the debugger in; empty: that of the process that starts it.
    std::string folder;
    /// The number of its client; -1: none.
    int client = -1;
    /// The variable that tells the debugger's environment that number; empty: none does.
    std::string clientVariable;
    /// For an agent: the name of the driver.
    std::string dialect;
    /// For an agent: Driver::Launch::errorMark.
    std::string errorMark;
    /// For an agent: what the debugger prints in front of the process id of a forked child; empty:
    /// forks are not followed.
    std::string forkMark;

    /// The driver gives the command line. The launch needs neither names of terminals nor a
    /// process.
    static DebuggerStart of(const Driver& driver, Driver::Launch launch, Environment environment,
                            pid_t attach = 0);
    /// The same for another client, and for the process that it attaches to.
    DebuggerStart with(int number, pid_t target) const;
    /// The command line with the names of real terminals and the process, and with the directory of
    /// the index; empty: there is none.
    std::vector<std::string> argvFor(const std::string& ownTerminal,
                                     const std::string& programsTerminal,
                                     const std::string& indexCache) const;
};

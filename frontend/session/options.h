#pragma once

#include "backend/jobs/target.h"
#include "common/clientset.h"

#include <string>
#include <vector>

/// What the user asked for on the command line.
struct Options {
    /// Number of clients.
    int tasks = 1;
    /// The processes to attach to, as they were given; empty: start the program.
    std::vector<pid_t> attach;
    /// The file that names the processes to attach to instead.
    std::string attachConfig;
    /// The launcher of a parallel job that runs already; 0: none.
    pid_t mpiLauncher = 0;
    /// Whether to go on without asking when tasks of that job are missing.
    bool partial = false;
    /// The program by which debuggers start a program that starts another one, a script, say;
    /// empty: they start the program itself.
    std::string starter;
    /// The file that task 0 reads as its standard input; empty: a terminal.
    std::string input;
    /// The core files to look at, as a pattern or their directory; empty: start the program.
    std::string core;
    /// These files by the numbers of their clients, found from the above (CoreFiles).
    std::vector<std::string> cores;
    bool coresHaveRanks = true;
    /// The command line of the launcher that shall start the tasks; empty: none.
    std::string launch;
    /// The file that names the hosts to start the launcher for; empty: it starts all tasks.
    std::string hosts;
    /// The agent, as it is called where the tasks run; empty: as on this machine.
    std::string agent;
    /// The command that starts a program on another host, to attach to a task there.
    std::string rsh = "ssh";
    /// The words of the launcher or of that command, and the host of each task, found from the
    /// above. No words: all debuggers are this machine's.
    std::vector<std::string> launcherWords;
    std::vector<std::string> hostOfTask;
    /// The tasks to attach to, found from the above; empty: start the program.
    std::vector<Target> targets;
    /// The ranks of the job that is attached to that are not among them, and why.
    ClientSet missing;
    std::string whyMissing;
    std::string debugger = "gdb";
    /// The debugger as it was given: agents look for it where they are.
    std::string debuggerThere = "gdb";
    /// Whether processes that the tasks fork are debugged, too.
    bool forks = true;
    /// Whether tasks that VEX starts are stopped when they call MPI_Abort.
    bool stopOnAbort = true;
    /// Whether debuggers keep an index of a program's symbols for those that come after them.
    bool indexCache = true;
    /// Whether tasks that are started tell who waits for whom in MPI, and the library that does.
    bool traceMpi = false;
    std::string mpiLibrary;
    /// How many consoles a session has at most.
    std::size_t consoles = 32;
    /// Whether a person sits at the first console: the session then lives on without consoles.
    bool interactive = true;
    /// Show this user's sessions instead.
    bool list = false;
    /// Open a console of this session instead; 0: none.
    int join = 0;
    /// The file of console commands to run instead of what a person types; empty: none.
    std::string script;
    /// The file to write a report to, in place of a console; "-": the standard output; empty: none.
    std::string report;
    /// What its start has said that a report should say, too: of tasks that are left out.
    std::vector<std::string> startNotes;
    /// How long a program runs at most before the report, in seconds; 0: as long as it wants.
    int timeout = 0;
    /// The console program; empty: the one beside this program, else the one in PATH.
    std::string console;
    /// The whole command line, as it was given.
    std::vector<std::string> words;
    /// The program to debug, as a path, and its arguments.
    std::vector<std::string> program;

    /// Whether a launcher starts the tasks.
    bool launches() const { return !launch.empty(); }
    /// Whether the program runs already.
    bool attaches() const { return !attach.empty() || !attachConfig.empty() || mpiLauncher != 0; }

    /// What follows from a command line: go on, or print a text and end.
    struct Outcome {
        bool proceed;
        int status;
        std::string text;
    };

    /// Fills in the options. The text of an outcome is an answer to --help or --version (status 0)
    /// or says what is wrong.
    Outcome parse(int argc, const char* const* argv);
};

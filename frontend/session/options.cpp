#include "frontend/session/options.h"

#include "backend/os/limits.h"
#include "common/sessionfile.h"

#include <CLI/CLI.hpp>

#include <sstream>

namespace {

// The system's largest process id.
constexpr int maxPid = 4194304;
constexpr int maxTimeout = 100000000; // seconds, three years

} // namespace

Options::Outcome Options::parse(int argc, const char* const* argv) {
    CLI::App app(
        "Debugs a parallel job: starts one debugger for each task of a program and opens a "
        "console in which one command goes to all of them.",
        "vex");
    app.set_version_flag("-V,--version", "vex " VEX_VERSION);
    CLI::Option* number = app.add_option("-n,--tasks", tasks, "Number of tasks")
                              ->check(CLI::Range(1, Limits::maxTasks))
                              ->capture_default_str();
    app.add_option("--debugger", debugger, "The debugger: gdb, or the path of one")
        ->capture_default_str();
    app.add_option("--forks", forks,
                   "Whether processes that the tasks fork become clients: yes or no")
        ->default_str("yes");
    app.add_option("--index-cache", indexCache,
                   "Whether gdb keeps an index of the program's symbols for the next: yes or no")
        ->default_str("yes");
    app.add_option("--stop-on-abort", stopOnAbort,
                   "Whether tasks that are started here stop at MPI_Abort and at errors that MPI "
                   "finds fatal: yes or no")
        ->default_str("yes");
    app.add_option("--console", console,
                   "The console program (default: the vexconsole beside vex, else in PATH)");
    app.add_option("--attach", attach, "Attach to these running processes: PID,PID,...")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::Range(1, maxPid))
        ->excludes(number);
    app.add_option("--attach-config", attachConfig,
                   "Attach to the processes that the launcher's attach file names")
        ->excludes(number);
    app.add_option("--mpi", mpiLauncher,
                   "Attach to the tasks of this launcher (mpirun, mpiexec, srun): PID")
        ->check(CLI::Range(1, maxPid))
        ->excludes(number);
    app.add_option("--core", core,
                   "Look at the program's core files: a quoted pattern, or their directory")
        ->excludes(number)
        ->excludes("--attach")
        ->excludes("--attach-config")
        ->excludes("--mpi");
    app.add_option("--stdin", input, "The file that task 0 reads as its standard input")
        ->excludes("--attach")
        ->excludes("--attach-config")
        ->excludes("--mpi")
        ->excludes("--core");
    app.add_flag("--trace-mpi", traceMpi,
                 "Load libvexmpi.so into the tasks: 'vex waits' tells who waits for whom in MPI")
        ->excludes("--attach")
        ->excludes("--attach-config")
        ->excludes("--mpi")
        ->excludes("--core");
    app.add_flag("--partial", partial, "With --mpi: go on although tasks of the job are missing");
    CLI::Option* launcher =
        app.add_option("--launch", launch,
                       "Let this command line start the tasks: 'mpirun -np 4', 'srun -n 4', ssh")
            ->excludes(number)
            ->excludes("--attach")
            ->excludes("--attach-config")
            ->excludes("--mpi")
            ->excludes("--core");
    app.add_option("--hosts", hosts, "With --launch ssh: the file that names the tasks' hosts")
        ->needs(launcher);
    app.add_option("--agent", agent,
                   "The path of vexagent on the tasks' hosts (default: as on this one)");
    app.add_option("--rsh", rsh,
                   "The command that starts a program on another host, to attach to a task there")
        ->capture_default_str();
    CLI::Option* file =
        app.add_option("--script", script, "Run the console commands of this file, then end");
    CLI::Option* reporting =
        app.add_option(
               "--report", report,
               "Open no console: run the program, or look at what runs, and write who is at "
               "fault to this file (.txt, .json, .html, - for the standard output)")
            ->excludes(file);
    app.add_option("--timeout", timeout, "With --report: how many seconds the program may run")
        ->check(CLI::Range(1, maxTimeout))
        ->needs(reporting);
    CLI::Option* listing = app.add_flag("--list", list, "Show your sessions");
    app.add_option("--join", join, "Open another console of your session of this number")
        ->check(CLI::Range(1, SessionFile::maxNumber))
        ->excludes(listing)
        ->excludes(file);
    reporting->excludes(listing);
    app.add_option("--consoles", consoles, "How many consoles may be open at a time")
        ->check(CLI::Range(1, 1024))
        ->capture_default_str();
    app.add_option("program", program, "The program to debug, and its arguments");
    // What follows the program is the program's own.
    app.positionals_at_end();
    app.prefix_command();
    app.footer("Each task finds in its environment:\n"
               "  VEX_TASK    its number, from 0\n"
               "  VEX_NTASKS  the number of tasks\n"
               "  VEX_JOB     a text that no other session has\n"
               "Examples: vex -n 8 ./solver input.dat\n"
               "          vex --launch 'mpirun -np 4' ./solver input.dat\n"
               "          vex --mpi $(pgrep -n mpirun)");
    words.assign(argv, argv + argc);
    std::ostringstream out, err;
    try {
        app.parse(argc, argv);
        // With those of the program left alone, the parser passes over what it does not know.
        std::vector<std::string> unknown = app.remaining();
        std::erase(unknown, "--");
        if (!unknown.empty()) throw CLI::ExtrasError({unknown[0]});
        if (app.count("--launch") != 0 && launch.empty())
            throw CLI::ValidationError("--launch", "the launcher is empty");
        const bool starts = !list && join == 0;
        if (starts && program.empty() && !attaches()) throw CLI::RequiredError("program");
        if (!starts &&
            (!program.empty() || attaches() || launches() || !core.empty() || !input.empty()))
            throw CLI::ValidationError("No program can be given with --list and --join");
        if (!report.empty() && report != "-" && !report.ends_with(".txt") &&
            !report.ends_with(".json") && !report.ends_with(".html"))
            throw CLI::ValidationError("--report",
                                       "the name of the file ends with .txt, .json or .html");
        if (timeout != 0 && (attaches() || join != 0 || !core.empty()))
            throw CLI::ValidationError("--timeout", "is for a program that vex starts");
        // Nobody would let their children go on.
        if (!report.empty() && app.count("--forks") == 0) forks = false;
        if (!program.empty() && attaches())
            throw CLI::ValidationError("No program can be given to attach to what runs already");
    } catch (const CLI::ParseError& error) {
        const int status = app.exit(error, out, err);
        return {false, status == 0 ? 0 : 2, status == 0 ? out.str() : "vex: " + err.str()};
    }
    return {true, 0, ""};
}

#include "backend/drivers/driver.h"
#include "backend/jobs/corefiles.h"
#include "backend/jobs/hostfile.h"
#include "backend/jobs/launcher.h"
#include "backend/jobs/remotetasks.h"
#include "backend/jobs/runningjob.h"
#include "backend/os/executables.h"
#include "backend/os/limits.h"
#include "backend/os/standardstreams.h"
#include "backend/os/text.h"
#include "backend/os/tracing.h"
#include "common/descriptor.h"
#include "common/error.h"
#include "frontend/session/options.h"
#include "frontend/session/sessionserver.h"
#include "frontend/terminal/foreground.h"
#include "frontend/terminal/guardian.h"
#include "frontend/terminal/key.h"
#include "frontend/terminal/sessionlist.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <new>
#include <set>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace {

constexpr char noMemory[] = "vex: there is not enough memory\n";

// Finds the words of the command line that starts agents, and the agents' program.
void prepareAgents(Options& options, const std::string& commandLine) {
    options.launcherWords = Launcher::split(commandLine);
    const std::string& launcher = options.launcherWords[0];
    if (!Executables::find(launcher))
        throw std::runtime_error("cannot find the launcher '" + launcher +
                                 "'. Is it installed, its module loaded? The path works, too.");
    if (options.agent.empty()) options.agent = Executables::agent();
}

// Half a job is debugged only when the user says so.
void acceptShortfall(Options& options, const RunningJob::Shortfall& shortfall, std::size_t found) {
    std::fprintf(stderr, "vex: %s\n", shortfall.str().c_str());
    options.missing = shortfall.ranks;
    options.whyMissing = shortfall.why;
    if (options.partial) return;
    const std::string some = "the " + std::to_string(found) + " that were found";
    if (!options.interactive || !options.script.empty() || !::isatty(STDERR_FILENO))
        throw std::runtime_error("to go on with " + some + ": --partial");
    if (!Key::confirms("vex: go on with " + some + "? (y/n) "))
        throw std::runtime_error("the start was given up");
}

// On the terminal, and where a report is to tell it.
void tell(Options& options, const std::vector<std::string>& notes) {
    for (const std::string& note : notes)
        std::fprintf(stderr, "vex: %s\n", note.c_str());
    options.startNotes.insert(options.startNotes.end(), notes.begin(), notes.end());
}

// Finds the tasks to attach to, and that it can be done.
void findTargets(Options& options) {
    RunningJob running;
    running.addPids(options.attach);
    if (!options.attachConfig.empty()) {
        TALConfig config;
        config.readConfiguration(options.attachConfig.c_str());
        running.addEntries(config);
    }
    if (options.mpiLauncher != 0) running.addJob(options.mpiLauncher);
    if (!running.managers().empty()) {
        prepareAgents(options, options.rsh);
        RemoteTasks::addTo(running, options.launcherWords, options.agent);
    }
    options.targets = running.targets();
    tell(options, running.notes());
    if (options.targets.empty()) throw std::runtime_error("there is no task to attach to.");
    if (const auto shortfall = running.shortfall())
        acceptShortfall(options, *shortfall, options.targets.size());
    if (options.targets.size() > Limits::maxTasks)
        throw std::runtime_error("that are more than " + std::to_string(Limits::maxTasks) +
                                 " tasks.");
    bool remote = false;
    for (const Target& target : options.targets) {
        options.hostOfTask.push_back(target.host);
        if (target.host.empty())
            Tracing::checkAttach(target.pid);
        else
            remote = true;
    }
    options.tasks = static_cast<int>(options.targets.size());
    if (remote)
        prepareAgents(options, options.rsh);
    else
        options.launcherWords.clear();
}

// What runs a script stands beside the agent, on every host. Another debugger than gdb sees the
// program itself.
void findStarter(Options& options) {
    const std::string& program = options.program[0];
    const bool plain =
        !options.core.empty() || Text::baseName(options.debugger).starts_with("lldb");
    if (plain && Executables::isScript(program))
        throw std::runtime_error("'" + program +
                                 "' is a script, which this debugger cannot look into. Give the "
                                 "program that it starts.");
    if (plain || !(Executables::isScript(program) || Executables::isWrapper(program))) return;
    const std::string agent = options.agent.empty() ? Executables::agent() : options.agent;
    options.starter = std::filesystem::path(agent).replace_filename("vexscript").string();
}

// A launched task may read a file of its own machine.
void findInput(Options& options) {
    if (options.input.find('\n') != std::string::npos)
        throw std::runtime_error("the name of the file for --stdin has a line break.");
    if (!options.launches()) {
        // It is not opened: the writer of a named pipe would take that for its reader's end.
        std::error_code none;
        int reason = ::access(options.input.c_str(), R_OK) == 0 ? 0 : errno;
        if (reason == 0 && std::filesystem::is_directory(options.input, none)) reason = EISDIR;
        if (reason != 0)
            throw std::runtime_error("cannot read '" + options.input +
                                     "' for --stdin: " + std::strerror(reason));
    } else if (Text::baseName(options.debugger).starts_with("lldb")) {
        throw std::runtime_error("with --launch, --stdin needs gdb.");
    }
    options.input = std::filesystem::absolute(options.input).string();
}

// Finds the core files to look at.
void findCores(Options& options) {
    CoreFiles found = CoreFiles::find(options.core, Limits::maxTasks);
    tell(options, found.notes);
    options.cores = std::move(found.paths);
    options.coresHaveRanks = found.ranked;
    options.tasks = static_cast<int>(options.cores.size());
}

// Finds what a launcher needs, before anything is started.
void prepareLaunch(Options& options) {
    namespace fs = std::filesystem;
    prepareAgents(options, options.launch);
    const std::string& launcher = options.launcherWords[0];
    if (!options.hosts.empty()) {
        std::ifstream file(options.hosts);
        if (!file)
            throw std::runtime_error("cannot read the host file '" + options.hosts +
                                     "': " + std::strerror(errno));
        options.hostOfTask = HostFile::read(file, options.hosts, Limits::maxTasks);
    } else if (fs::path(launcher).filename() == "ssh") {
        throw std::runtime_error("ssh needs the hosts of the tasks: --hosts FILE, one a line.");
    }
    // The agents may stand elsewhere.
    options.program[0] = fs::absolute(options.program[0]).lexically_normal().string();
    options.tasks = 0;
}

// A launched one may be on the machines of its tasks only.
void findProgram(Options& options) {
    std::string& program = options.program[0];
    try {
        program = Executables::program(program);
    } catch (const std::runtime_error& error) {
        if (!options.launches() || program.find('/') == std::string::npos) throw;
        std::fprintf(stderr, "vex: on this machine: %s\n", error.what());
    }
}

// What the session needs, looked for before it is started: its user is told on the terminal.
void prepare(Options& options) {
    const bool attaches = options.attaches();
    if (!attaches) findProgram(options);
    if (!attaches) findStarter(options);
    if (attaches) findTargets(options);
    if (!options.core.empty()) findCores(options);
    if (!options.input.empty()) findInput(options);
    // Agents look for theirs where they are.
    options.debuggerThere = options.debugger;
    const bool local =
        !options.launches() && (!attaches || std::ranges::count(options.hostOfTask, "") > 0);
    if (local) options.debugger = Executables::debugger(options.debugger);
    if (options.launches())
        prepareLaunch(options);
    else if (!attaches && options.cores.empty() && !Tracing::works())
        throw std::runtime_error(
            "tracing processes (ptrace) is refused here, so no debugger can run a program. In a "
            "container, start it with --cap-add=SYS_PTRACE.");
    if (options.traceMpi) {
        if (!makeDriver(options.debugger)->preloads())
            throw std::runtime_error("--trace-mpi needs gdb as the debugger.");
        options.mpiLibrary = Executables::mpiLibrary(options.agent);
    }
    Limits::liftDescriptors();
    std::set<std::string> hosts;
    int elsewhere = 0;
    for (const Target& each : options.targets) {
        if (each.host.empty()) continue;
        hosts.insert(each.host);
        ++elsewhere;
    }
    elsewhere += static_cast<int>(std::ranges::count(options.cores, ""));
    const Limits::Need need{.tasks = options.tasks,
                            .here = options.tasks - elsewhere,
                            .debugger = Limits::memoryOf(options.debugger),
                            .hosts = static_cast<int>(hosts.size())};
    if (const auto problem = Limits::refusal(need, Limits::facts()))
        throw std::runtime_error(*problem);
}

// The session's own process.
int serve(const Options& options, Session& session, Channel line) {
    StandardStreams::detach(STDOUT_FILENO);
    return SessionServer(options, session, std::move(line)).run();
}

// A signal that ends this process or its child before both can hear it would leave the session's
// file: it waits until then.
void holdSignals() {
    sigset_t held;
    ::sigemptyset(&held);
    ::sigaddset(&held, SIGHUP);
    ::sigaddset(&held, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &held, nullptr);
}

// The words of the program that writes a report.
std::vector<std::string> reporterWords(const Options& options) {
    if (options.report.empty()) return {};
    const char* const way = options.join != 0       ? "join"
                            : options.attaches()    ? "look"
                            : !options.core.empty() ? "cores"
                                                    : "run";
    std::vector<std::string> words{"-f", options.report, "-w",
                                   way,  "-t",           std::to_string(options.timeout)};
    // For the advice to follow them.
    if (!options.forks && options.join == 0) words.emplace_back("-n");
    for (const std::string& note : options.startNotes)
        words.insert(words.end(), {"-e", note});
    // For its version.
    if (options.launches()) {
        for (const std::string& word : options.launcherWords)
            words.insert(words.end(), {"-l", word});
    }
    if (options.mpiLauncher != 0)
        words.insert(words.end(), {"-p", std::to_string(options.mpiLauncher)});
    words.emplace_back("--");
    words.insert(words.end(), options.words.begin(), options.words.end());
    return words;
}

// Before there is a session that could tell anything.
void onEarlySignal(int number) {
    constexpr std::string_view text =
        "vex: was ended before the tasks were found; no report is written\n";
    [[maybe_unused]] const auto put = ::write(STDERR_FILENO, text.data(), text.size());
    ::_exit(128 + number);
}

int start(Options options) {
    const bool reports = !options.report.empty();
    for (const int number : {SIGINT, SIGTERM})
        if (reports) std::signal(number, onEarlySignal);
    prepare(options);
    holdSignals();
    if (reports) std::signal(SIGINT, SIG_IGN);
    if (reports) std::signal(SIGTERM, SIG_DFL);
    Session session;
    auto [ours, theirs] = Channel::pair();
    const pid_t guardian = ::fork();
    if (guardian == -1)
        throw std::system_error(errno, std::generic_category(), "cannot start the session");
    if (guardian == 0) {
        ours.close();
        const auto status = Guardian::run(session, theirs, options);
        return status ? *status : serve(options, session, std::move(theirs));
    }
    theirs.close();
    const int number = session.number();
    session.leave();
    return Foreground({.session = number,
                       .console = options.console,
                       .guardian = guardian,
                       .script = !options.script.empty(),
                       .waits = !options.interactive,
                       .reporter = reporterWords(options)},
                      std::move(ours))
        .run();
}

int join(const Options& options) {
    auto line = Session::reach(options.join);
    if (!line)
        throw std::runtime_error("you have no session " + std::to_string(options.join) +
                                 "; vex --list shows those that you have.");
    return Foreground({.session = options.join,
                       .console = options.console,
                       .reporter = reporterWords(options)},
                      std::move(*line))
        .run();
}

// Makes it the standard input.
void openScript(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) == -1)
        throw std::runtime_error("cannot read the script '" + path + "': " + std::strerror(errno) +
                                 ". It is a file of console commands, one a line.");
    if (S_ISDIR(status.st_mode))
        throw std::runtime_error("'" + path +
                                 "' is a directory, not a file of console commands, one a line.");
    ::dup2(file.get(), STDIN_FILENO);
}

int run(Options options) {
    if (options.list) {
        std::fputs(SessionList::text().c_str(), stdout);
        return 0;
    }
    if (::getuid() == 0 || ::geteuid() == 0)
        throw std::runtime_error(
            "does not run as root. Start it as an ordinary user, for instance: "
            "su - USER -c 'vex ...'");
    options.console =
        options.report.empty() ? Executables::console(options.console) : Executables::reporter();
    if (!options.script.empty()) openScript(options.script);
    options.interactive = options.report.empty() && ::isatty(STDIN_FILENO);
    // The keys of the terminal are the console's business.
    for (int number : {SIGINT, SIGQUIT, SIGPIPE, SIGTTOU})
        std::signal(number, SIG_IGN);
    return options.join != 0 ? join(options) : start(std::move(options));
}

} // namespace

int main(int argc, char** argv) {
    try {
        Options options;
        // The parser's library ends the program when there is no memory: not without a word.
        std::set_new_handler([] {
            std::fputs(noMemory, stderr);
            std::_Exit(1);
        });
        const Options::Outcome outcome = options.parse(argc, argv);
        std::set_new_handler(nullptr);
        if (outcome.proceed) return run(std::move(options));
        std::fputs(outcome.text.c_str(), outcome.status == 0 ? stdout : stderr);
        return outcome.status;
    } catch (const Error& error) {
        std::fprintf(stderr, "vex: %s", error.getErrMsg());
    } catch (const std::bad_alloc&) {
        std::fputs(noMemory, stderr);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vex: %s\n", error.what());
    }
    return 1;
}

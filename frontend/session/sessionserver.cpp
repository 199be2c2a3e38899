#include "frontend/session/sessionserver.h"

#include "backend/clients/identity.h"
#include "backend/os/executables.h"
#include "backend/os/insist.h"
#include "backend/os/processtree.h"
#include "backend/os/reportrules.h"
#include "backend/os/standardstreams.h"
#include "backend/os/text.h"
#include "backend/wire/rendezvous.h"
#include "frontend/session/exitstatus.h"
#include "frontend/switchboard/owncommand.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <sstream>
#include <sys/wait.h>
#include <utility>

namespace {

Driver::Subject subjectOf(const Options& options) {
    return options.attaches()      ? Driver::Subject::PROCESS
           : options.cores.empty() ? Driver::Subject::PROGRAM
                                   : Driver::Subject::CORE;
}

std::string programOf(const Options& options) {
    if (!options.attaches()) return options.program[0];
    const Target& first = options.targets[0];
    if (first.host.empty()) return Identity::ofProcess(first.pid).program;
    return first.program.empty() ? "tasks of " + first.host : first.program;
}

} // namespace

SessionServer::SessionServer(const Options& sessionOptions, Session& session, Channel line)
    : options(sessionOptions),
      driver(makeDriver(options.debugger, subjectOf(options))),
      program(programOf(options)),
      signals(loop, {SIGCHLD, SIGUSR1, SIGTERM}, [this](int number) { onSignal(number); }),
      boardTimer(loop),
      closeTimer(loop),
      controls(loop, std::move(line), session.control(), *this),
      consoles(loop, session, options.consoles, *this),
      clients(loop, options, *driver,
              std::to_string(session.number()) + "-" + Rendezvous::newSecret().substr(0, 16),
              *this),
      board(options.tasks, *driver, *this),
      programs(loop, *this),
      whoQueries(loop, *this),
      waitQueries(loop, *this),
      detachment(loop, *this) {
    if (!options.script.empty()) board.runsUnattended();
}

int SessionServer::run() {
    try {
        consoles.listen();
        clients.start();
        loop.run();
    } catch (...) {
        takeDown();
        throw;
    }
    if (status != 0) return status;
    for (const auto& [at, tasks] : board.keptTasks()) {
        clients.say(std::string(at) + (at == "MPI_Abort" ? " was called by " : " was made by ") +
                    Text::list(tasks));
        status = ExitStatus::refused;
    }
    if (const auto verdict = clients.verdict()) {
        clients.say(*verdict);
        status = ExitStatus::refused;
    }
    return status;
}

// After a fault, debuggers let go of their tasks as at any other end. The user hears of that fault,
// not of those that follow it. When it faults again and again, the guardian does the rest.
void SessionServer::takeDown() {
    phase = ENDING;
    insist([this] { consoles.close(); });
    insist([this] { programs.stopAll(); });
    insist([this] { clients.end(); });
    insist([this] {
        if (!closing) detachment.begin();
        loop.run();
    });
}

// --- the world outside

void SessionServer::onSignal(int number) {
    switch (number) {
    case SIGCHLD:
        onChild();
        break;
    case SIGUSR1:
        onGiveUp();
        break;
    default:
        end(128 + number);
        break;
    }
}

// The user does not want to wait any longer for the start.
void SessionServer::onGiveUp() {
    if (phase != STARTING) return;
    clients.say("the start was given up");
    end(1);
}

void SessionServer::onChild() {
    while (const auto child = ProcessTree::endedChild()) {
        if (!clients.collect(*child)) programs.collect();
        // What its owner has reaped is none of this process any more. The others are strangers:
        // what debuggers leave behind comes here.
        ::waitpid(*child, nullptr, WNOHANG);
    }
    detachment.look();
}

// --- consoles

// The agents know which processes the tasks are; the answer waits a moment for them.
void SessionServer::onCommand(int id, const Command& command) {
    if (phase != SERVING) return;
    // Its user has seen them on the terminal; who reads a report has not.
    if (!options.report.empty() && !std::exchange(startTold, true)) {
        for (const auto& [line, whose] : clients.complaints())
            board.tell(whose, line);
        for (const StartLosses::Row& row : clients.losses().rows())
            board.tell(row.tasks,
                       (row.ofDebugger ? ReportRules::undebugged : ReportRules::missing) + row.why);
    }
    if (OwnCommand::of(command) == OwnCommand::WHO) return whoQueries.want(id, command);
    if (OwnCommand::of(command) == OwnCommand::WAITS) return waitQueries.want(id, command);
    // A console that does not wait for that answer any more must not get it behind the answer to
    // this command.
    for (const auto type : {Command::INTERRUPT, Command::PROMPT, Command::ON}) {
        if (command.getType() != type) continue;
        whoQueries.forget(id);
        waitQueries.forget(id);
    }
    board.command(id, command, Clock::now());
}

void SessionServer::onIdentitiesKnown(int id, const Command& command) {
    if (phase != SERVING || !consoles.contains(id)) return;
    board.command(id, command, Clock::now());
}

void SessionServer::onConsoleLeft(int id) {
    if (phase == SERVING) {
        board.consoleLeft(id);
        resumeReading();
    }
    endIfDeserted();
}

void SessionServer::onConsoleDropped(int id, const std::string& why) {
    if (phase == SERVING) board.announce("console " + std::to_string(id) + " was dropped: " + why);
}

void SessionServer::endIfDeserted() {
    if (phase != ENDING && !options.interactive && consoles.open() == 0 && controls.present() == 0)
        end(0);
    if (closing && consoles.empty()) loop.stop();
}

// A terminal that the session kept open would keep its window from closing.
void SessionServer::onFirstGone() { StandardStreams::detach(); }

std::string SessionServer::onConsoleEnded(bool first, ControlServer::Leave how) {
    if (phase == ENDING) return "";
    if (first && how == ControlServer::VANISHED) {
        end(128 + SIGKILL);
    } else if (first && how == ControlServer::LEFT && !consoles.met()) {
        // What writes a report has said why.
        if (options.report.empty()) clients.say("the console ended before it was connected");
        end(1);
    } else {
        endIfDeserted();
    }
    if (phase == ENDING) return "";
    return (consoles.full() ? "is full " : "goes on ") + std::to_string(consoles.open());
}

// What vex --list shows: the tasks that are left, the open consoles, the age in seconds, the
// program.
std::string SessionServer::facts() const {
    using namespace std::chrono;
    std::ostringstream text;
    text << clients.living() << ' ' << consoles.open() << ' '
         << duration_cast<seconds>(Clock::now() - begin).count() << ' ' << program;
    return text.str();
}

void SessionServer::resumeReading() {
    clients.resume();
    programs.resume();
}

// --- debuggers, and the user's programs

void SessionServer::onClientOutput(int id, std::string_view text) {
    board.output(id, text, Clock::now());
}

void SessionServer::onClientRuns(int id, bool runs) { board.runs(id, runs); }

void SessionServer::onClientPrompt(int id) {
    board.prompted(id, Clock::now());
    programs.resume();
}

void SessionServer::onClientEnded(int id) { board.clientGone(id, Clock::now()); }

void SessionServer::onClientForked(int id, const std::string& who, Node* node) {
    board.clientForked(id, who);
    if (node) board.setNode({id}, *node);
}

bool SessionServer::mayReadClients(const ClientSet& ids) {
    const bool several = consoles.several();
    return std::ranges::none_of(ids, [&](int id) {
        const int console = board.ownerOf(id);
        // One link brings the answers for all consoles.
        return several ? consoles.full(console) : consoles.congested(console);
    });
}

void SessionServer::onAllStarted() {
    phase = SERVING;
    const ClientSet all = board.groups().all();
    for (const int id : all) {
        if (!clients.alive(id)) board.clientGone(id, Clock::now());
    }
    // A console that has its number may send commands: not before all debuggers have prompted.
    consoles.serve();
}

void SessionServer::onProgramOutput(int id, std::string_view text) {
    if (phase != SERVING) return;
    board.userProgramOutput(id, text, Clock::now());
}

void SessionServer::onProgramEnded(int id, const std::string& problem) {
    if (phase != SERVING) return;
    if (!problem.empty() && board.runsScript(id)) clients.scriptFailed(id);
    board.userProgramEnded(id, problem, Clock::now());
}

void SessionServer::startUserProgram(int id, const std::string& command, const std::string& input) {
    programs.start(
        id, {command,
             {{"VEX_SCRIPT_TASKID", std::to_string(id)}, {"VEX_SCRIPT_DEBUGGER", driver->name()}},
             input});
}

bool SessionServer::isProgram(const std::string& name) {
    return Executables::find(name).has_value();
}

// --- time and the end

void SessionServer::wakeAt(std::optional<Clock::time_point> time) {
    boardTimer.cancel();
    if (!time || phase != SERVING) return;
    boardTimer.at(*time, [this] {
        if (phase == SERVING) board.tick(Clock::now());
    });
}

void SessionServer::end(int exitStatus) {
    if (phase == ENDING) return;
    phase = ENDING;
    status = exitStatus;
    boardTimer.cancel();
    consoles.close();
    programs.stopAll();
    clients.end();
    detachment.begin();
}

// What debuggers have started is below this process.
std::vector<pid_t> SessionServer::heldTasks() const {
    return options.attaches() ? Detachment::Owner::heldTasks() : std::vector<pid_t>();
}

void SessionServer::onDetached() {
    closing = true;
    consoles.finish();
    if (consoles.empty()) loop.stop();
    // A console closes by itself when it has read all; the session does not wait for one that does
    // not read.
    closeTimer.after(std::chrono::milliseconds(1500), [this] { loop.stop(); });
}

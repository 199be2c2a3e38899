#include "frontend/session/sessionserver.h"

#include "backend/clients/identity.h"
#include "backend/os/executables.h"
#include "backend/os/processtree.h"
#include "backend/os/standardstreams.h"
#include "backend/wire/rendezvous.h"
#include "frontend/session/exitstatus.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <sstream>
#include <unistd.h>

namespace {

std::string programOf(const Options& options) {
    if (!options.attaches()) return options.program[0];
    const Target& first = options.targets[0];
    if (first.host.empty()) return Identity::ofProcess(first.pid).program;
    return first.program.empty() ? "tasks of " + first.host : first.program;
}

} // namespace

SessionServer::SessionServer(const Options& wanted, Session& session, Channel line)
    : options(wanted),
      driver(makeDriver(wanted.debugger)),
      program(programOf(wanted)),
      signals(loop, {SIGCHLD, SIGUSR1, SIGTERM}, [this](int number) { onSignal(number); }),
      boardTimer(loop),
      closeTimer(loop),
      controls(loop, std::move(line), session.control(), controlsHandler()),
      consoles(loop, session, wanted.consoles, consolesHandler()),
      clients(loop, options, *driver,
              std::to_string(session.number()) + "-" + Rendezvous::newSecret().substr(0, 16),
              clientsHandler()),
      board(wanted.tasks, *driver, *this),
      programs(loop, programsHandler()),
      whoQueries(
          loop, [this] { return clients.askIdentities(); },
          [this](int console, const Command& command) {
              if (phase != SERVING || !consoles.contains(console)) return;
              board.command(console, command, Clock::now());
          }),
      detachment(
          loop, [this] { return clients.releasing(); }, [this] { closeSession(); }) {}

SessionServer::~SessionServer() {
    clients.end();
    for (int round = 0; clients.releasing() && round < 200; ++round) {
        ::usleep(10000);
        clients.collect();
    }
    killAll();
    ProcessTree::reapStrangers({});
}

int SessionServer::run() {
    consoles.listen();
    clients.start();
    loop.run();
    const auto verdict = clients.verdict();
    if (status != 0 || !verdict) return status;
    std::fprintf(stderr, "vex: %s\n", verdict->c_str());
    return ExitStatus::refused;
}

// --- the world outside

void SessionServer::onSignal(int number) {
    switch (number) {
    case SIGCHLD:
        onChild();
        break;
    case SIGUSR1:
        giveUp();
        break;
    default:
        end(128 + number);
        break;
    }
}

// The user does not want to wait any longer for the start.
void SessionServer::giveUp() {
    if (phase != STARTING) return;
    std::fprintf(stderr, "vex: the start was given up\n");
    end(1);
}

void SessionServer::onChild() {
    clients.collect();
    programs.collect();
    std::vector<pid_t> known;
    clients.listPids(known);
    programs.listPids(known);
    std::sort(known.begin(), known.end());
    ProcessTree::reapStrangers(known);
    detachment.look();
}

// --- consoles

Consoles::Handler SessionServer::consolesHandler() {
    return {[this](int id) { board.consoleJoined(id); },
            [this](int id, const Command& command) {
                if (phase == SERVING) this->command(id, command);
            },
            [this](int id) { onConsoleGone(id); }, [this] { resumeReading(); }};
}

// Which processes the tasks are, their agents know; the answer waits for those a moment.
void SessionServer::command(int id, const Command& command) {
    if (Switchboard::asksWho(command)) return whoQueries.want(id, command);
    // Who no longer waits for that answer must not get it behind the answer to this.
    for (const auto type : {Command::INTERRUPT, Command::PROMPT, Command::ON}) {
        if (command.getType() == type) whoQueries.forget(id);
    }
    board.command(id, command, Clock::now());
}

void SessionServer::onConsoleGone(int id) {
    if (phase == SERVING) {
        board.consoleLeft(id);
        resumeReading();
    }
    endIfDeserted();
}

void SessionServer::endIfDeserted() {
    if (phase != ENDING && !options.interactive && consoles.open() == 0 && controls.present() == 0)
        end(0);
    if (closing && consoles.empty()) loop.stop();
}

ControlServer::Handler SessionServer::controlsHandler() {
    return {[this](bool first, ControlServer::Leave how) { return onConsoleLeft(first, how); },
            // A terminal that the session kept open would keep its window from closing.
            [] { StandardStreams::detach(); }, [this] { giveUp(); },
            [this](int exitStatus) { end(exitStatus); }, [this] { return facts(); }};
}

std::string SessionServer::onConsoleLeft(bool first, ControlServer::Leave how) {
    if (phase == ENDING) return "";
    if (first && how == ControlServer::VANISHED) {
        end(128 + SIGKILL);
    } else if (first && how == ControlServer::LEFT && !consoles.met()) {
        std::fprintf(stderr, "vex: the console ended before it was connected\n");
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

// --- debuggers, and what works for clients

Clients::Handler SessionServer::clientsHandler() {
    return {[this](int count) { board.setClients(count); },
            [this] { onStarted(); },
            [this] { end(1); },
            [this](int id, std::string_view text) { board.output(id, text, Clock::now()); },
            [this](int id) {
                board.prompted(id, Clock::now());
                programs.resume();
            },
            [this](int id) { return mayRead(id); },
            [this](int id) { board.clientGone(id); },
            [this](int id, const std::string& who) { board.clientForked(id, who); },
            [this](int id, const std::string& text) { board.tell(id, text); },
            [this](const std::string& text) { board.announce(text); },
            [this] { whoQueries.answered(); }};
}

void SessionServer::onStarted() {
    phase = SERVING;
    const ClientSet all = board.groups().all();
    for (const int id : all) {
        if (!clients.alive(id)) board.clientGone(id);
    }
    // A console that has its number may send commands: not before all debuggers have prompted.
    consoles.serve();
}

UserPrograms::Handler SessionServer::programsHandler() {
    return {[this](int id, std::string_view text) {
                if (phase != SERVING) return;
                board.userProgramOutput(id, text, Clock::now());
            },
            [this](int id, const std::string& problem) {
                if (phase != SERVING) return;
                if (!problem.empty() && board.runsScript(id)) clients.scriptFailed(id);
                board.userProgramEnded(id, problem, Clock::now());
            },
            [this](int id) { return mayRead(id) && board.userProgramMayTalk(id); }};
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
    boardTimer.expires_at(*time);
    boardTimer.async_wait([this](const asio::error_code& fault) {
        if (!fault && phase == SERVING) board.tick(Clock::now());
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

// Nothing else is to be done for the clients: takes down what is left and closes the consoles.
void SessionServer::closeSession() {
    closing = true;
    killAll();
    consoles.finish();
    if (consoles.empty()) loop.stop();
    // A console closes by itself when it has read all; one that does not read is not waited for.
    closeTimer.expires_after(std::chrono::milliseconds(1500));
    closeTimer.async_wait([this](const asio::error_code& fault) {
        if (!fault) loop.stop();
    });
}

// The debugged programs first, then the debuggers, whatever they started in between, too.
void SessionServer::killAll() { ProcessTree::killDescendants(::getpid(), -1); }

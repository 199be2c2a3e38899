#include "frontend/frontend.h"

#include "common/frame.h"
#include "frontend/executables.h"
#include "frontend/frontpart.h"
#include "frontend/identity.h"
#include "frontend/limits.h"
#include "frontend/localclient.h"
#include "frontend/processtree.h"
#include "frontend/tracing.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <unistd.h>

using asio::posix::descriptor_base;

namespace {

// So many forked processes are debugged, or as many as there are tasks.
constexpr std::size_t fewForks = 16;

std::string randomText() {
    static constexpr char letters[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::random_device source;
    std::string text;
    while (text.size() < 16)
        text += letters[source() % (sizeof letters - 1)];
    return text;
}

template <typename Record>
std::string frameOf(MessageKind kind, const Record& record) {
    int length = 0;
    const auto body = record.pack(&length);
    return Frame::wrap(kind, body.get(), length);
}

std::string list(const ClientSet& ids) {
    std::string text = ids.str();
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    return text;
}

} // namespace

Frontend::Frontend(const Options& wanted, Session& claimed, Channel line)
    : options(wanted),
      debugger(makeDebugger(wanted.debugger)),
      session(claimed),
      job(std::to_string(session.number()) + "-" + randomText()),
      program(attaches() ? Identity::ofProcess(wanted.targets[0].pid).program : wanted.program[0]),
      listener(loop, session.listener()),
      listenTimer(loop),
      signals(loop, SIGCHLD, SIGUSR1),
      boardTimer(loop),
      phaseTimer(loop),
      attendants(loop, std::move(line), session.control(),
                 {[this](bool first, Attendants::Leave how) { return onConsoleLeft(first, how); },
                  // A terminal that the session kept open would keep its window from closing.
                  [] { FrontPart::leaveTerminal(); }, [this] { giveUp(); },
                  [this](int exitStatus) { end(exitStatus); }, [this] { return facts(); }}),
      greetings(static_cast<std::size_t>(wanted.tasks)),
      alive(static_cast<std::size_t>(wanted.tasks), true),
      attached(static_cast<std::size_t>(wanted.tasks), false),
      board(wanted.tasks, *debugger, *this),
      helpers(loop, {[this](int id, std::string_view text) {
                         if (phase != SERVING) return;
                         board.helperOutput(id, text, Clock::now());
                         schedule();
                     },
                     [this](int id, const std::string& problem) {
                         if (phase != SERVING) return;
                         board.helperEnded(id, problem, Clock::now());
                         schedule();
                     },
                     [this](int id) { return mayRead(id) && board.helperMayTalk(id); }}),
      identityTimer(loop),
      forks(loop,
            {[this](const Forks::Child& child) { return adopt(child); },
             [this](int parent, const std::string& text) { board.tell(parent, text); }},
            wanted.forks ? debugger->forkMark() : "",
            std::max(fewForks, static_cast<std::size_t>(wanted.tasks))) {
    if (!options.script.empty())
        errors = std::make_unique<ErrorWatch>(*debugger, '\002' + randomText() + '\002');
    clients.resize(static_cast<std::size_t>(wanted.tasks));
}

Frontend::~Frontend() {
    for (const auto& client : clients) {
        if (client) client->release();
    }
    for (int round = 0; attaches() && debuggersRun() && round < 200; ++round) {
        ::usleep(10000);
        for (const auto& client : clients) {
            if (client) client->ended();
        }
    }
    killAll();
    ProcessTree::reapStrangers({});
    listener.release();
}

int Frontend::run() {
    signals.add(SIGTERM);
    listen();
    awaitSignals();
    if (options.launches())
        launch();
    else
        startClients();
    sayWhoIsMissing();
    loop.run();
    const auto verdict = errors ? errors->verdict() : std::nullopt;
    if (status != 0 || !verdict) return status;
    std::fprintf(stderr, "vex: %s\n", verdict->c_str());
    return FrontPart::refused;
}

// --- the world outside

void Frontend::listen() {
    listener.async_wait(descriptor_base::wait_read, [this](const asio::error_code& fault) {
        if (fault || phase == ENDING) return;
        if (auto connection = session.accept()) {
            join(std::move(connection));
            return listen();
        }
        // One that cannot be accepted, for want of descriptors, goes on asking.
        listenTimer.expires_after(std::chrono::milliseconds(100));
        listenTimer.async_wait([this](const asio::error_code& cancelled) {
            if (!cancelled) listen();
        });
    });
}

void Frontend::awaitSignals() {
    signals.async_wait([this](const asio::error_code& fault, int number) {
        if (fault) return;
        onSignal(number);
        awaitSignals();
    });
}

void Frontend::onSignal(int number) {
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
void Frontend::giveUp() {
    if (phase != STARTING) return;
    std::fprintf(stderr, "vex: the start was given up\n");
    end(1);
}

void Frontend::onChild() {
    for (std::size_t i = 0; i < clients.size(); ++i) {
        if (clients[i] && clients[i]->ended()) onClientEnded(static_cast<int>(i));
    }
    std::vector<pid_t> known;
    for (const auto& client : clients) {
        if (client) known.push_back(client->pid());
    }
    helpers.collect();
    helpers.listPids(known);
    if (launched) {
        launched->collect();
        launched->listPids(known);
    }
    std::sort(known.begin(), known.end());
    ProcessTree::reapStrangers(known);
    const bool busy = launched ? launched->running() : debuggersRun();
    if (phase == ENDING && !closing && !busy) closeSession();
}

// --- consoles

void Frontend::join(std::unique_ptr<UnixSocket> connection) {
    auto link = std::make_shared<ConsoleLink>(loop, std::move(connection));
    if (links.size() >= options.consoles) {
        // It hears so in place of its number.
        const int none = -1;
        std::string number(sizeof none, '\0');
        std::memcpy(number.data(), &none, sizeof none);
        link->start({[](const Command&) {}, [] {}, [] {}});
        link->send(number);
        link->finish();
        return;
    }
    const int id = ++lastConsole;
    links[id] = link;
    link->start({[this, id](const Command& command) {
                     if (phase == SERVING) this->command(id, command);
                 },
                 [this, id] { onLinkClosed(id); }, [this] { resumeReading(); }});
    if (phase == SERVING) serve(id);
}

// A console that has its number may send commands: not before all debuggers have prompted.
void Frontend::serve(int id) {
    std::string number(sizeof id, '\0');
    std::memcpy(number.data(), &id, sizeof id);
    board.consoleJoined(id);
    send(id, number);
}

void Frontend::onLinkClosed(int id) {
    links.erase(id);
    if (phase == SERVING) {
        board.consoleLeft(id);
        schedule();
        resumeReading();
    }
    endIfDeserted();
}

void Frontend::endIfDeserted() {
    if (phase != ENDING && !options.interactive && openConsoles() == 0 && attendants.present() == 0)
        end(0);
    if (closing && links.empty()) loop.stop();
}

// Those that have closed their end count no more, though what they sent may be unread.
int Frontend::openConsoles() const {
    return static_cast<int>(
        std::ranges::count_if(links, [](const auto& each) { return !each.second->abandoned(); }));
}

std::string Frontend::onConsoleLeft(bool first, Attendants::Leave how) {
    if (phase == ENDING) return "";
    if (first && how == Attendants::VANISHED) {
        end(128 + SIGKILL);
    } else if (first && how == Attendants::LEFT && lastConsole == 0) {
        std::fprintf(stderr, "vex: the console ended before it was connected\n");
        end(1);
    } else {
        endIfDeserted();
    }
    if (phase == ENDING) return "";
    const int open = openConsoles();
    return (open < static_cast<int>(options.consoles) ? "goes on " : "is full ") +
           std::to_string(open);
}

// What vex --list shows: the tasks that are left, the open consoles, the age in seconds, the
// program.
std::string Frontend::facts() const {
    using namespace std::chrono;
    std::ostringstream text;
    text << std::ranges::count(alive, true) << ' ' << openConsoles() << ' '
         << duration_cast<seconds>(Clock::now() - begin).count() << ' ' << program;
    return text.str();
}

void Frontend::toConsole(int id, const Reply& reply) { send(id, frameOf(KIND_REPLY, reply)); }

void Frontend::toConsole(int id, const Data& data) {
    const auto link = links.find(id);
    // Who only looks on and does not keep up misses some output; the owner's clients wait for him.
    if (link == links.end() ||
        (link->second->congested() && data.getType() == Data::TEXT && data.getConsoleID() != id))
        return;
    send(id, frameOf(KIND_DATA, data));
}

void Frontend::send(int id, const std::string& bytes) {
    if (auto link = links.find(id); link != links.end()) link->second->send(bytes);
}

bool Frontend::mayRead(int id) const {
    const auto link = links.find(board.ownerOf(id));
    return link == links.end() || !link->second->congested();
}

void Frontend::resumeReading() {
    for (const auto& client : clients) {
        if (client) client->resume();
    }
    helpers.resume();
}

// --- what works for clients

void Frontend::startHelper(int id, const std::string& command, const std::string& input) {
    helpers.start(
        id, {command,
             {{"VEX_SCRIPT_TASKID", std::to_string(id)}, {"VEX_SCRIPT_DEBUGGER", debugger->name()}},
             input});
}

bool Frontend::isProgram(const std::string& name) { return Executables::find(name).has_value(); }

std::string Frontend::describe(int id) {
    if (const auto* remote =
            dynamic_cast<const RemoteClient*>(clients[static_cast<std::size_t>(id)].get()))
        return remote->identity().empty()
                   ? "rank " + std::to_string(id) + "  its agent does not answer"
                   : remote->identity();
    const pid_t process = processOf(id);
    return (process != 0 ? Identity::ofProcess(process)
                         : Identity::underDebugger(clients[static_cast<std::size_t>(id)]->pid()))
        .str();
}

// What the client's debugger has attached to; 0: it starts its program.
pid_t Frontend::processOf(int id) const {
    const auto index = static_cast<std::size_t>(id);
    if (index < options.targets.size()) return options.targets[index].pid;
    const Forks::Child* child = forks.childOf(id);
    return child ? child->pid : 0;
}

// --- debuggers

void Frontend::startClients() {
    if (launched) {
        // They come by themselves.
        if (phase == STARTING && nextToStart == clients.size() && pending.empty()) allStarted();
        return;
    }
    // Starting reads symbols: more at a time than there are processors makes nothing faster.
    const std::size_t limit = std::max(2u, std::thread::hardware_concurrency());
    while (phase == STARTING && nextToStart < clients.size() && pending.size() < limit)
        startClient(static_cast<int>(nextToStart++));
    if (phase == STARTING && nextToStart == clients.size() && pending.empty()) allStarted();
}

void Frontend::startClient(int id) {
    const std::size_t index = static_cast<std::size_t>(id);
    pending.insert(id);
    clients[index] = std::make_unique<LocalClient>(loop, handlerOf(id), debuggerStart(id));
}

// --- debuggers that a launcher starts

void Frontend::launch() {
    LaunchedJob::Plan plan;
    plan.launcher = options.launcherWords;
    plan.agent = options.agent;
    plan.hosts = options.hostOfTask;
    plan.onlyTcp = std::getenv("VEX_LAUNCH_TCP") != nullptr;
    launched = std::make_unique<LaunchedJob>(
        loop, plan,
        LaunchedJob::Handler{[this](int count) { setTasks(count); },
                             [this](int rank, auto link) { onAgent(rank, std::move(link)); },
                             [this](const std::string& line) { onLauncherSaid(line); },
                             [this](const std::string& problem) {
                                 std::fprintf(stderr, "vex: %s\n", problem.c_str());
                                 end(1);
                             }});
    try {
        launched->start();
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "vex: %s\n", error.what());
        end(1);
    }
}

void Frontend::setTasks(int count) {
    // Their terminals are their agents'.
    Limits::Facts facts = Limits::facts();
    facts.terminals = std::numeric_limits<long>::max();
    if (const auto problem = Limits::refusal(count, facts)) {
        std::fprintf(stderr, "vex: %s\n", problem->c_str());
        return end(1);
    }
    const auto number = static_cast<std::size_t>(count);
    clients.resize(number);
    greetings.resize(number);
    alive.resize(number, true);
    attached.resize(number, false);
    board.setClients(count);
}

void Frontend::onAgent(int rank, std::shared_ptr<AgentLink> link) {
    if (phase != STARTING) return link->close();
    DebuggerStart start = debuggerStart(rank);
    // A launcher keeps its own directory, or goes where it was told to; ssh goes home.
    if (!options.hostOfTask.empty()) start.folder = std::filesystem::current_path().string();
    ++nextToStart;
    pending.insert(rank);
    clients[static_cast<std::size_t>(rank)] =
        std::make_unique<RemoteClient>(std::move(link), handlerOf(rank),
                                       RemoteClient::Watch{[this, rank] { onClientEnded(rank); },
                                                           [this] {
                                                               if (--identities == 0)
                                                                   allIdentified();
                                                           }},
                                       start);
}

void Frontend::onLauncherSaid(const std::string& line) {
    if (phase == STARTING) std::fprintf(stderr, "vex: launcher: %s\n", line.c_str());
    if (phase == SERVING) board.announce("launcher: " + line);
}

// Which processes the tasks are, their agents know; the answer waits for those a moment.
void Frontend::command(int id, const Command& command) {
    if (launched && Switchboard::asksWho(command)) {
        asking.emplace_back(id, command);
        for (const auto& client : clients) {
            auto* remote = dynamic_cast<RemoteClient*>(client.get());
            if (remote && remote->running() && remote->askIdentity()) ++identities;
        }
        if (identities == 0) return allIdentified();
        identityTimer.expires_after(Wait::answer);
        identityTimer.async_wait([this](const asio::error_code& fault) {
            if (!fault) allIdentified();
        });
        return;
    }
    // Who no longer waits for that answer must not get it behind the answer to this.
    for (const auto type : {Command::INTERRUPT, Command::PROMPT, Command::ON}) {
        if (command.getType() == type)
            std::erase_if(asking, [id](const auto& each) { return each.first == id; });
    }
    board.command(id, command, Clock::now());
    schedule();
}

void Frontend::allIdentified() {
    identityTimer.cancel();
    for (const auto& [id, command] : std::exchange(asking, {})) {
        if (phase == SERVING && links.contains(id)) board.command(id, command, Clock::now());
    }
    schedule();
}

Client::Handler Frontend::handlerOf(int id) {
    return {[this, id](std::string_view text) { onOutput(id, text); }, [this, id] { onPrompt(id); },
            [this, id] { return mayRead(id); }};
}

DebuggerStart Frontend::debuggerStart(int id) const {
    Debugger::Launch launch;
    if (attaches()) launch.attach = options.targets[static_cast<std::size_t>(id)].pid;
    launch.program = options.program;
    launch.nonce = randomText();
    if (errors && debugger->marksErrors()) launch.errorMark = errors->mark();
    return DebuggerStart::of(*debugger, launch,
                             {{"VEX_TASK", std::to_string(id)},
                              {"VEX_NTASKS", std::to_string(clients.size())},
                              {"VEX_JOB", job}});
}

void Frontend::onOutput(int id, std::string_view text) {
    std::string plain;
    if (errors) text = plain = errors->pass(id, text);
    if (phase == SERVING && !forks.isStarting(id)) {
        forks.heard(id, clients[static_cast<std::size_t>(id)]->pid(), text);
        board.output(id, text, Clock::now());
        schedule();
    } else if (phase != ENDING) {
        greetings[static_cast<std::size_t>(id)] += text;
    }
}

void Frontend::onPrompt(int id) {
    if (phase == SERVING && forks.isStarting(id)) {
        onAdopted(id, *forks.childOf(id));
        forks.started(id);
        schedule();
    } else if (phase == SERVING) {
        board.prompted(id, Clock::now());
        schedule();
        helpers.resume();
    } else if (phase == STARTING) {
        const auto index = static_cast<std::size_t>(id);
        // What a debugger says while it attaches is of interest only when it could not.
        attached[index] =
            attaches() && Tracing::isTracedBy(clients[index]->pid(), options.targets[index].pid);
        if (attached[index]) greetings[index].clear();
        onStarted(id);
    }
}

// It has prompted for the first time, or ended before; it may end, or prompt again, later.
void Frontend::onStarted(int id) {
    if (!pending.erase(id)) return;
    startClients();
}

void Frontend::onClientEnded(int id) {
    alive[static_cast<std::size_t>(id)] = false;
    if (phase == SERVING) {
        if (errors) errors->ended(id);
        board.clientGone(id, Clock::now());
        forks.ended(id);
        schedule();
    } else if (phase == STARTING) {
        greetings[static_cast<std::size_t>(id)] += "\nthe debugger ended during the start\n";
        onStarted(id);
    }
}

// A forked child of a task gets the next free number.
int Frontend::adopt(const Forks::Child& child) {
    const auto running = static_cast<int>(board.groups().all().size());
    if (const auto problem = Limits::refusal(running + 1, Limits::facts(), running))
        throw std::runtime_error(*problem);
    const int id = static_cast<int>(clients.size());
    Debugger::Launch launch;
    launch.attach = child.pid;
    launch.owned = !attaches();
    launch.nonce = randomText();
    if (errors && debugger->marksErrors()) launch.errorMark = errors->mark();
    auto client = std::make_unique<LocalClient>(loop, handlerOf(id),
                                                DebuggerStart::of(*debugger, launch, {}));
    clients.push_back(std::move(client));
    greetings.emplace_back();
    alive.push_back(true);
    attached.push_back(true);
    return id;
}

void Frontend::onAdopted(int id, const Forks::Child& child) {
    Client& client = *clients[static_cast<std::size_t>(id)];
    if (Tracing::tracerOf(child.pid) == client.pid()) {
        board.clientForked(id, Identity::ofProcess(child.pid).str() + "  forked by client " +
                                   std::to_string(child.parent));
        return;
    }
    if (ProcessTree::parentOf(child.pid) != 0) forks.refuse(child, "the debugger could not attach");
    client.release();
}

void Frontend::allStarted() {
    tellGreetings();
    if (std::none_of(alive.begin(), alive.end(), [](bool each) { return each; })) {
        std::fprintf(stderr, "vex: no debugger is left; try: %s %s\n", options.debugger.c_str(),
                     attaches() ? "-p PID" : options.program[0].c_str());
        end(1);
        return;
    }
    if (attaches() && std::ranges::find(attached, true) == attached.end()) {
        std::fprintf(stderr, "vex: no debugger could attach\n");
        end(1);
        return;
    }
    for (std::size_t i = 0; errors && i < alive.size(); ++i) {
        if (!alive[i] || errors->begins(static_cast<int>(i))) continue;
        std::fprintf(stderr, "vex: the debuggers cannot tell their errors, which --script needs: "
                             "is this a gdb without Python?\n");
        end(1);
        return;
    }
    phase = SERVING;
    phaseTimer.cancel();
    for (std::size_t i = 0; i < alive.size(); ++i) {
        if (!alive[i]) board.clientGone(static_cast<int>(i), Clock::now());
    }
    for (const auto& [id, link] : links)
        serve(id);
}

// What the debuggers had to say beyond their usual greeting, each text once.
void Frontend::tellGreetings() const {
    std::vector<std::pair<std::string, ClientSet>> texts;
    for (std::size_t i = 0; i < greetings.size(); ++i) {
        std::string rest = greetings[i];
        for (std::size_t end; !rest.empty();
             rest.erase(0, end == std::string::npos ? end : end + 1)) {
            end = rest.find('\n');
            const std::string line = rest.substr(0, end);
            if (debugger->isGreeting(line)) continue;
            auto at = std::find_if(texts.begin(), texts.end(),
                                   [&line](const auto& each) { return each.first == line; });
            if (at == texts.end()) at = texts.insert(at, {line, {}});
            at->second.insert(static_cast<int>(i));
        }
    }
    for (const auto& [text, ids] : texts)
        std::fprintf(stderr, "vex: %s | %s%s%s\n", list(ids).c_str(), text.c_str(),
                     debugger->hintFor(text).empty() ? "" : " ", debugger->hintFor(text).c_str());
}

void Frontend::sayWhoIsMissing() {
    phaseTimer.expires_after(std::chrono::seconds(10));
    phaseTimer.async_wait([this](const asio::error_code& fault) {
        if (fault || phase != STARTING) return;
        if (clients.empty())
            std::fprintf(stderr, "vex: the launcher has not started a task yet; Ctrl-C gives up\n");
        else
            std::fprintf(stderr, "vex: %zu of %zu debuggers have started; Ctrl-C gives up\n",
                         nextToStart - pending.size(), clients.size());
        sayWhoIsMissing();
    });
}

void Frontend::toClient(int id, const std::string& line) {
    if (errors) errors->typed(id, line);
    clients[static_cast<std::size_t>(id)]->type(debugger->whole(line));
}

void Frontend::interrupt(int id) { clients[static_cast<std::size_t>(id)]->interrupt(); }

// --- time and the end

void Frontend::schedule() {
    const auto next = phase == SERVING ? board.deadline() : std::nullopt;
    if (next == armed) return;
    armed = next;
    boardTimer.cancel();
    if (!next) return;
    boardTimer.expires_at(*next);
    boardTimer.async_wait([this](const asio::error_code& fault) {
        if (fault || phase != SERVING) return;
        armed.reset();
        board.tick(Clock::now());
        schedule();
    });
}

void Frontend::sessionOver() { end(0); }

void Frontend::end(int exitStatus) {
    if (phase == ENDING) return;
    phase = ENDING;
    forks.stop();
    status = exitStatus;
    boardTimer.cancel();
    helpers.stopAll();
    if (attaches())
        releaseTasks(0);
    else if (launched)
        endAgents();
    else
        closeSession();
}

// Agents take down what is below them, wherever that is, and the launcher ends after them.
void Frontend::endAgents() {
    launched->stop();
    for (const auto& client : clients) {
        if (client) client->release();
    }
    if (!launched->running()) return closeSession();
    phaseTimer.expires_after(nextToStart == 0 ? std::chrono::seconds(0) : std::chrono::seconds(5));
    phaseTimer.async_wait([this](const asio::error_code& fault) {
        if (!fault) closeSession();
    });
}

bool Frontend::debuggersRun() const {
    return std::any_of(clients.begin(), clients.end(),
                       [](const auto& each) { return each && each->running(); });
}

// Processes that were there before the session live on after it, without breakpoints: their
// debuggers are given time to see to that. A killed debugger would leave its breakpoints behind.
void Frontend::releaseTasks(int patience) {
    for (const auto& client : clients) {
        if (client) client->release();
    }
    // A program that blocks SIGINT does not stop by it, but by this.
    for (std::size_t i = 0; patience == 1 && i < clients.size(); ++i) {
        if (clients[i] && clients[i]->running()) stopped.push_back(processOf(static_cast<int>(i)));
    }
    for (pid_t each : stopped)
        ::kill(each, SIGSTOP);
    if (patience == 2 || !debuggersRun()) {
        closeSession();
        return;
    }
    phaseTimer.expires_after(std::chrono::seconds(3));
    phaseTimer.async_wait([this, patience](const asio::error_code& fault) {
        if (!fault) releaseTasks(patience + 1);
    });
}

// Nothing else is to be done for the clients: takes down what is left and closes the consoles.
void Frontend::closeSession() {
    closing = true;
    phaseTimer.cancel();
    killAll();
    for (pid_t each : stopped)
        ::kill(each, SIGCONT);
    // A link that closes comes back through onLinkClosed, later.
    for (const auto& [id, link] : links)
        link->finish();
    if (links.empty()) loop.stop();
    // A console closes by itself when it has read all; one that does not read is not waited for.
    phaseTimer.expires_after(std::chrono::milliseconds(1500));
    phaseTimer.async_wait([this](const asio::error_code& fault) {
        if (!fault) loop.stop();
    });
}

// The debugged programs first, then the debuggers, whatever they started in between, too.
void Frontend::killAll() { ProcessTree::killDescendants(::getpid(), -1); }

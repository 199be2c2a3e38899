#include "backend/clients/localclient.h"

#include "backend/clients/debuggerchild.h"
#include "backend/clients/detachment.h"
#include "backend/clients/mpireader.h"
#include "backend/os/drain.h"
#include "backend/os/tracing.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <unistd.h>
#include <utility>

namespace {

// By then, a debugger that prints nothing has read its command.
constexpr auto deaf = std::chrono::milliseconds(50);

} // namespace

LocalClient::LocalClient(EventLoop& loop, Listener& hears, const DebuggerStart& start)
    : LocalClient(loop, hears, start, std::make_unique<DebuggerChild>(start)) {}

LocalClient::LocalClient(EventLoop& loop, Listener& hears, const DebuggerStart& start,
                         std::unique_ptr<DebuggerProcess> started)
    : listener(hears),
      number(start.client),
      process(std::move(started)),
      terminals(process->takeTerminals()),
      stream(loop, terminals.debugger.get()),
      inputStream(loop, terminals.program.get()),
      matcher(start.prompt),
      target(start.attach),
      program(start.program),
      core(start.core),
      numberIsRank(start.numberIsRank),
      patience(loop) {
    waitToRead();
    waitToReadInput();
}

LocalClient::~LocalClient() = default;

void LocalClient::waitToRead() { wait(stream, paused, &LocalClient::readSome); }

void LocalClient::waitToReadInput() { wait(inputStream, inputPaused, &LocalClient::readInput); }

void LocalClient::wait(Stream& from, bool& held, bool (LocalClient::*read)()) {
    from.whenReadable([this, &from, &held, read] {
        if (!listener.mayRead(number))
            held = true;
        else if ((this->*read)())
            wait(from, held, read);
    });
}

void LocalClient::resume() {
    if (std::exchange(paused, false)) waitToRead();
    if (std::exchange(inputPaused, false)) waitToReadInput();
}

// A terminal that fails while its debugger lives leaves one that hears nothing, or is not heard: it
// is as good as ended, and ended sees to the rest.
bool LocalClient::mayGoOn(ssize_t result) {
    if (result == -1 && (errno == EAGAIN || errno == EINTR)) return true;
    if (target != 0)
        release();
    else
        process->signal(SIGKILL);
    return false;
}

// Reads what is there at the moment, once; false when no more will come.
bool LocalClient::readSome() {
    std::array<char, 65536> buffer;
    const ssize_t got = ::read(terminals.debugger.get(), buffer.data(), buffer.size());
    if (got <= 0) return mayGoOn(got);
    answered = true;
    for (const auto& piece : matcher.feed({buffer.data(), static_cast<std::size_t>(got)})) {
        if (!piece.text.empty()) listener.onOutput(number, piece.text);
        if (piece.mark == PromptMatcher::NONE) continue;
        if (piece.mark != PromptMatcher::RUNS) interruptedAt = {};
        if (piece.mark != PromptMatcher::PROMPT) {
            listener.onRuns(number, piece.mark == PromptMatcher::RUNS);
            continue;
        }
        patience.cancel();
        listener.onPrompt(number);
    }
    return true;
}

// What a program writes to its input terminal by name ("/dev/tty") is output, too.
bool LocalClient::readInput() {
    std::array<char, 4096> buffer;
    const ssize_t got = ::read(terminals.program.get(), buffer.data(), buffer.size());
    if (got <= 0) return mayGoOn(got);
    listener.onOutput(number, {buffer.data(), static_cast<std::size_t>(got)});
    return true;
}

void LocalClient::type(const std::string& line) {
    unwritten += line + '\n';
    typedAt = Clock::now();
    answered = false;
    if (!writing) writeSome();
}

void LocalClient::writeSome() {
    writing = false;
    while (!unwritten.empty() && terminals.debugger) {
        const ssize_t put = ::write(terminals.debugger.get(), unwritten.data(), unwritten.size());
        if (put == -1 && errno == EINTR) continue;
        if (put == -1 && errno != EAGAIN) {
            mayGoOn(put);
            return;
        }
        if (put == -1) {
            writing = true;
            stream.whenWritable([this] { writeSome(); });
            return;
        }
        unwritten.erase(0, static_cast<std::size_t>(put));
    }
}

void LocalClient::interrupt() {
    const auto early = typedAt + deaf;
    if (answered || Clock::now() >= early) {
        if (mayInterrupt()) process->signalGroup(SIGINT);
        return;
    }
    patience.at(early, [this] {
        if (mayInterrupt()) process->signalGroup(SIGINT);
    });
}

// A debugger passes its SIGINT on to a task that it has attached to. A second one, which comes
// while the first is stopping the task, stays with the task and ends it once the debugger has let
// go.
bool LocalClient::mayInterrupt() {
    if (target == 0) return true;
    if (Clock::now() < interruptedAt + Detachment::stopping) return false;
    interruptedAt = Clock::now();
    return true;
}

void LocalClient::release() {
    if (target == 0 || !terminals.debugger) return;
    patience.cancel();
    if (mayInterrupt()) process->signal(SIGINT);
    stream.release();
    terminals.debugger.reset();
}

bool LocalClient::holds() const { return target != 0 && Tracing::isTracedBy(pid(), target); }

Identity LocalClient::who() const {
    if (target != 0) return Identity::ofProcess(target);
    Identity found = Identity::underDebugger(pid());
    if (found.pid != -1) return found;
    if (numberIsRank) found.rank = std::to_string(number);
    found.program = program;
    // All of a job's may have the same name, in different directories.
    if (core.ends_with("/" + found.core)) found.core = core;
    return found;
}

MpiState LocalClient::mpiState() const { return MpiReader::stateOf(who().pid); }

bool LocalClient::ended() {
    if (!process->ended()) return false;
    drain(terminals.debugger.get(), [this] { return readSome(); });
    readInput();
    const std::string rest = matcher.rest();
    if (!rest.empty()) listener.onOutput(number, rest);
    patience.cancel();
    stream.cancel();
    inputStream.cancel();
    // A program that the debugger has started may still write to its terminals; a task that it
    // attached to never did.
    if (target != 0) {
        stream.release();
        inputStream.release();
        terminals.debugger.reset();
        terminals.program.reset();
    }
    return true;
}

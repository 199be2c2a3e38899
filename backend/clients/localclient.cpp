#include "backend/clients/localclient.h"

#include "backend/os/tracing.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace {

// A debugger that says nothing has read its command after so long.
constexpr auto deaf = std::chrono::milliseconds(50);

} // namespace

LocalClient::LocalClient(EventLoop& loop, Handler handler, const DebuggerStart& start)
    : handle(std::move(handler)),
      stream(loop, terminal.master()),
      inputStream(loop, inputTerminal.master()),
      matcher(start.prompt),
      target(start.attach),
      program(start.program),
      task(std::to_string(start.client)),
      patience(loop) {
    ChildProcess::Start what;
    what.argv = start.argvFor(terminal.name(), inputTerminal.name());
    what.environment = start.environment;
    what.terminal = terminal.terminal();
    what.inherits = start.inherits;
    if (target != 0) what.orphan = ChildProcess::Start::INTERRUPTED;
    process.start(what);
    terminal.closeTerminal();
    waitToRead();
    waitToReadInput();
}

LocalClient::~LocalClient() = default;

void LocalClient::waitToRead() { wait(stream, paused, &LocalClient::readSome); }

void LocalClient::waitToReadInput() { wait(inputStream, inputPaused, &LocalClient::readInput); }

void LocalClient::wait(Stream& from, bool& held, bool (LocalClient::*read)()) {
    from.whenReadable([this, &from, &held, read] {
        if (!handle.mayRead())
            held = true;
        else if ((this->*read)())
            wait(from, held, read);
    });
}

void LocalClient::resume() {
    if (std::exchange(paused, false)) waitToRead();
    if (std::exchange(inputPaused, false)) waitToReadInput();
}

// Reads what is there at the moment, once; false when no more will come.
bool LocalClient::readSome() {
    std::array<char, 65536> buffer;
    const ssize_t got = ::read(terminal.master(), buffer.data(), buffer.size());
    if (got <= 0) return got == -1 && (errno == EAGAIN || errno == EINTR);
    heard = true;
    for (const auto& piece : matcher.feed({buffer.data(), static_cast<std::size_t>(got)})) {
        if (!piece.text.empty()) handle.output(piece.text);
        if (!piece.prompt) continue;
        patience.cancel();
        handle.prompt();
    }
    return true;
}

// What a program writes to its input terminal by name ("/dev/tty") is output, too.
bool LocalClient::readInput() {
    std::array<char, 4096> buffer;
    const ssize_t got = ::read(inputTerminal.master(), buffer.data(), buffer.size());
    if (got <= 0) return got == -1 && (errno == EAGAIN || errno == EINTR);
    handle.output({buffer.data(), static_cast<std::size_t>(got)});
    return true;
}

void LocalClient::type(const std::string& line) {
    typed += line + '\n';
    typedAt = Clock::now();
    heard = false;
    if (!writing) writeSome();
}

void LocalClient::writeSome() {
    writing = false;
    while (!typed.empty() && terminal.master() != -1) {
        const ssize_t put = ::write(terminal.master(), typed.data(), typed.size());
        if (put == -1 && errno == EINTR) continue;
        if (put == -1 && errno != EAGAIN) return; // it has ended, which is seen elsewhere
        if (put == -1) {
            writing = true;
            stream.whenWritable([this] { writeSome(); });
            return;
        }
        typed.erase(0, static_cast<std::size_t>(put));
    }
}

void LocalClient::interrupt() {
    const auto early = typedAt + deaf;
    if (heard || Clock::now() >= early) {
        process.signalGroup(SIGINT);
        return;
    }
    patience.at(early, [this] { process.signalGroup(SIGINT); });
}

void LocalClient::release() {
    if (target == 0 || terminal.master() == -1) return;
    patience.cancel();
    process.signal(SIGINT);
    stream.release();
    terminal.closeMaster();
}

bool LocalClient::holds() const { return target != 0 && Tracing::isTracedBy(pid(), target); }

Identity LocalClient::who() const {
    if (target != 0) return Identity::ofProcess(target);
    Identity found = Identity::underDebugger(pid());
    if (found.pid != -1) return found;
    found.rank = task;
    found.program = program;
    return found;
}

bool LocalClient::ended() {
    if (process.poll() != ChildProcess::ENDED) return false;
    // All that is left fits a terminal's buffer; a program that lives on may go on writing.
    for (int round = 0; round < 64; ++round) {
        pollfd ready{terminal.master(), POLLIN, 0};
        if (::poll(&ready, 1, 0) != 1 || !(ready.revents & POLLIN) || !readSome()) break;
    }
    readInput();
    const std::string rest = matcher.rest();
    if (!rest.empty()) handle.output(rest);
    patience.cancel();
    stream.cancel();
    inputStream.cancel();
    // What it has started may still write there; what it had attached to never did.
    if (target != 0) {
        stream.release();
        inputStream.release();
        terminal.closeMaster();
        inputTerminal.closeMaster();
    }
    return true;
}

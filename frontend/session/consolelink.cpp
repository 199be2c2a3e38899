#include "frontend/session/consolelink.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

// By then, a console that is full has read something.
constexpr auto maxSilence = std::chrono::seconds(30);

} // namespace

ConsoleLink::ConsoleLink(EventLoop& eventLoop, Owner& whose, int number,
                         std::unique_ptr<UnixSocket> connection)
    : loop(eventLoop),
      owner(whose),
      console(number),
      socket(std::move(connection)),
      patience(loop),
      stream(loop, socket->getFd()) {}

std::string ConsoleLink::terminal() const {
    ucred peer{};
    socklen_t length = sizeof peer;
    if (::getsockopt(socket->getFd(), SOL_SOCKET, SO_PEERCRED, &peer, &length) == -1) return "";
    const std::string input = "/proc/" + std::to_string(peer.pid) + "/fd/0";
    std::error_code none;
    const std::string name = std::filesystem::read_symlink(input, none).string();
    for (const std::string_view folder : {"/dev/pts/", "/dev/tty"}) {
        if (name.starts_with(folder)) return name.substr(std::string_view("/dev/").size());
    }
    return "";
}

void ConsoleLink::start() { waitToRead(); }

void ConsoleLink::waitToRead() {
    stream.whenReadable([self = shared_from_this()] { self->readSome(); });
}

// As long as the queue is full.
void ConsoleLink::watch() {
    patience.at(readAt + maxSilence, [this] {
        drop("it has read nothing for " + std::to_string(maxSilence.count()) + " s, and " +
             std::to_string(queue.size() >> 20) + " MB wait for it");
    });
}

void ConsoleLink::readSome() {
    std::array<char, 65536> buffer;
    const ssize_t got = ::read(socket->getFd(), buffer.data(), buffer.size());
    if (got == 0 || (got == -1 && errno != EAGAIN && errno != EINTR)) {
        close();
        return;
    }
    if (got > 0) reader.feed({buffer.data(), static_cast<std::size_t>(got)});
    takeCommands();
    if (over) return;
    if (reader.waiting() > 0) owner.onLinkParked(console);
    if (!over && !held) waitToRead();
}

void ConsoleLink::takeCommands() {
    try {
        // A command can end the session and with it this link.
        while (!over && !finishing) {
            // Its answers would wait behind all the others.
            held = full();
            if (held) return;
            const auto command = reader.next();
            if (!command) break;
            owner.onLinkCommand(console, *command);
        }
    } catch (const BrokenConnection&) {
        close();
    }
}

void ConsoleLink::send(std::string bytes) { enqueue(std::move(bytes)); }

void ConsoleLink::send(std::shared_ptr<const std::string> bytes) { enqueue(std::move(bytes)); }

template <class Bytes>
void ConsoleLink::enqueue(Bytes bytes) {
    if (over || finishing) return;
    const bool wasFull = full();
    if (queue.empty()) readAt = Clock::now();
    queue.add(std::move(bytes));
    if (full() && !wasFull) watch();
    // Together with what else this turn of the loop has to say.
    if (!writing) waitToWrite();
}

void ConsoleLink::waitToWrite() {
    writing = true;
    stream.whenWritable([self = shared_from_this()] { self->writeSome(); });
}

void ConsoleLink::writeSome() {
    writing = false;
    const bool wasFull = full();
    const std::size_t before = queue.size();
    if (!queue.send(socket->getFd())) return close();
    if (queue.size() < before) readAt = Clock::now();
    if (full()) watch();
    const bool room = wasFull && !full();
    if (room) patience.cancel();
    if (queue.drained() || room) owner.onLinkDrained(console);
    if (over) return;
    if (!full() && std::exchange(held, false)) {
        takeCommands();
        if (over) return;
        if (!held) waitToRead();
    }
    if (!queue.empty())
        waitToWrite();
    else if (finishing)
        close();
}

bool ConsoleLink::abandoned() const {
    pollfd end{socket->getFd(), POLLRDHUP, 0};
    return over || ::poll(&end, 1, 0) != 0;
}

void ConsoleLink::drop(const std::string& why) {
    if (over) return;
    close();
    owner.onLinkStuck(console, why);
}

void ConsoleLink::finish() {
    finishing = true;
    if (queue.empty()) close();
}

void ConsoleLink::close() {
    if (over) return;
    over = true;
    patience.cancel();
    stream.release();
    socket->close();
    loop.post([self = shared_from_this()] { self->owner.onLinkClosed(self->console); });
}

#include "frontend/session/consolelink.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <unistd.h>
#include <utility>

ConsoleLink::ConsoleLink(EventLoop& eventLoop, Owner& whose, int number,
                         std::unique_ptr<UnixSocket> connection)
    : loop(eventLoop),
      owner(whose),
      console(number),
      socket(std::move(connection)),
      stream(loop, socket->getFd()) {}

void ConsoleLink::start() { waitToRead(); }

void ConsoleLink::waitToRead() {
    stream.whenReadable([self = shared_from_this()] { self->readSome(); });
}

void ConsoleLink::readSome() {
    std::array<char, 65536> buffer;
    const ssize_t got = ::read(socket->getFd(), buffer.data(), buffer.size());
    if (got == 0 || (got == -1 && errno != EAGAIN && errno != EINTR)) {
        close();
        return;
    }
    if (got > 0) reader.feed({buffer.data(), static_cast<std::size_t>(got)});
    try {
        // A command can end the session and with it this link.
        while (!over && !finishing) {
            const auto command = reader.next();
            if (!command) break;
            owner.onLinkCommand(console, *command);
        }
    } catch (const BrokenConnection&) {
        close();
    }
    if (!over) waitToRead();
}

void ConsoleLink::send(std::string bytes) { enqueue(std::move(bytes)); }

void ConsoleLink::send(std::shared_ptr<const std::string> bytes) { enqueue(std::move(bytes)); }

template <class Bytes>
void ConsoleLink::enqueue(Bytes bytes) {
    if (over || finishing) return;
    queue.add(std::move(bytes));
    // Together with what else this turn of the loop has to say.
    if (!writing) waitToWrite();
}

void ConsoleLink::waitToWrite() {
    writing = true;
    stream.whenWritable([self = shared_from_this()] { self->writeSome(); });
}

void ConsoleLink::writeSome() {
    writing = false;
    if (!queue.send(socket->getFd())) return close();
    if (queue.drained()) owner.onLinkDrained(console);
    if (!queue.empty())
        waitToWrite();
    else if (finishing)
        close();
}

bool ConsoleLink::abandoned() const {
    pollfd end{socket->getFd(), POLLRDHUP, 0};
    return over || ::poll(&end, 1, 0) != 0;
}

void ConsoleLink::finish() {
    finishing = true;
    if (queue.empty()) close();
}

void ConsoleLink::close() {
    if (over) return;
    over = true;
    stream.release();
    socket->close();
    loop.post([self = shared_from_this()] { self->owner.onLinkClosed(self->console); });
}

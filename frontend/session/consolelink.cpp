#include "frontend/session/consolelink.h"

#include <asio/post.hpp>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

ConsoleLink::ConsoleLink(asio::io_context& loop, std::unique_ptr<UnixSocket> connection)
    : socket(std::move(connection)),
      // The event loop closes what it holds, and so does the socket: each has its own.
      stream(loop, ::fcntl(socket->getFd(), F_DUPFD_CLOEXEC, 0)) {}

void ConsoleLink::start(Handler handler) {
    handle = std::move(handler);
    waitToRead();
}

void ConsoleLink::waitToRead() {
    stream.async_wait(asio::posix::descriptor_base::wait_read,
                      [self = shared_from_this()](const asio::error_code& fault) {
                          if (!fault && !self->over) self->readSome();
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
    try {
        // A command can end the session and with it this link.
        while (!over && !finishing) {
            const auto command = reader.next();
            if (!command) break;
            handle.command(*command);
        }
    } catch (const BrokenConnection&) {
        close();
    }
    if (!over) waitToRead();
}

void ConsoleLink::send(std::string bytes) {
    if (over || finishing) return;
    waiting += bytes.size();
    full |= congested();
    queue.push_back(std::move(bytes));
    // Together with what else this turn of the loop has to say.
    if (!writing) waitToWrite();
}

void ConsoleLink::waitToWrite() {
    writing = true;
    stream.async_wait(asio::posix::descriptor_base::wait_write,
                      [self = shared_from_this()](const asio::error_code& fault) {
                          self->writing = false;
                          if (!fault && !self->over) self->writeSome();
                      });
}

void ConsoleLink::writeSome() {
    while (!queue.empty()) {
        const std::string& first = queue.front();
        const ssize_t put = ::send(socket->getFd(), first.data() + sent, first.size() - sent,
                                   MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put == -1 && errno == EINTR) continue;
        if (put == -1 && errno == EAGAIN) break;
        if (put == -1) {
            close();
            return;
        }
        sent += static_cast<std::size_t>(put);
        waiting -= static_cast<std::size_t>(put);
        if (sent < first.size()) continue;
        queue.pop_front();
        sent = 0;
    }
    if (full && waiting < lowWater) {
        full = false;
        handle.drained();
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

void ConsoleLink::finish() {
    finishing = true;
    if (queue.empty()) close();
}

void ConsoleLink::close() {
    if (over) return;
    over = true;
    stream.close();
    socket->close();
    asio::post(stream.get_executor(), [self = shared_from_this()] {
        self->handle.closed();
        self->handle = {};
    });
}

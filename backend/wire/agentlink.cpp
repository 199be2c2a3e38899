#include "backend/wire/agentlink.h"

#include "common/brokenconnection.h"

#include <asio/ip/tcp.hpp>
#include <asio/post.hpp>
#include <asio/socket_base.hpp>
#include <asio/write.hpp>

#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <utility>

AgentLink::AgentLink(Socket connected, int largest)
    : socket(std::move(connected)), reader(largest) {
    const int fd = socket.native_handle();
    // None of the programs that this process starts may hold it.
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    asio::error_code fault;
    const int family = socket.local_endpoint(fault).protocol().family();
    if (fault || family == AF_UNIX) return;
    // A command and its answer are small. A host that is gone without a word shows after a minute
    // and a half.
    const std::pair<int, int> settings[] = {
        {TCP_NODELAY, 1}, {TCP_KEEPIDLE, 30},        {TCP_KEEPINTVL, 10},
        {TCP_KEEPCNT, 6}, {TCP_USER_TIMEOUT, 90000},
    };
    for (const auto& [name, value] : settings)
        ::setsockopt(fd, IPPROTO_TCP, name, &value, sizeof value);
    socket.set_option(asio::socket_base::keep_alive(true), fault);
}

void AgentLink::start(Handler handler) {
    handle = std::move(handler);
    readSome();
}

void AgentLink::setHandler(Handler handler, int largest) {
    handle = std::move(handler);
    reader.allow(largest);
}

void AgentLink::readSome() {
    socket.async_read_some(
        asio::buffer(buffer),
        [self = shared_from_this()](const asio::error_code& fault, std::size_t got) {
            if (self->over) return;
            if (fault) {
                self->close();
                return;
            }
            self->reader.feed({self->buffer.data(), got});
            self->takeRecords();
        });
}

void AgentLink::takeRecords() {
    try {
        while (!over && !finishing) {
            if (handle.mayRead && !handle.mayRead()) {
                paused = true;
                return;
            }
            const auto body = reader.body();
            if (!body) break;
            // What it does may give the link other handlers.
            const auto record = handle.record;
            record(AgentRecord::unpack(*body));
        }
    } catch (const BrokenConnection&) {
        close();
    }
    if (!over) readSome();
}

void AgentLink::resume() {
    if (!std::exchange(paused, false)) return;
    // Never from within a call.
    asio::post(socket.get_executor(), [self = shared_from_this()] {
        if (!self->over) self->takeRecords();
    });
}

void AgentLink::send(const AgentRecord& record) {
    if (over || finishing) return;
    const bool idle = queue.empty() && sending.empty();
    queue += record.frame();
    full |= congested();
    // Together with what else this turn of the loop has to say.
    if (idle) asio::post(socket.get_executor(), [self = shared_from_this()] { self->writeSome(); });
}

void AgentLink::writeSome() {
    if (over) return;
    if (queue.empty()) {
        if (finishing) close();
        return;
    }
    sending = std::exchange(queue, {});
    asio::async_write(socket, asio::buffer(sending),
                      [self = shared_from_this()](const asio::error_code& fault, std::size_t) {
                          self->sending.clear();
                          if (self->over) return;
                          if (fault) {
                              self->close();
                              return;
                          }
                          self->writeSome();
                          if (self->full && self->queue.size() + self->sending.size() < lowWater) {
                              self->full = false;
                              if (self->handle.drained) self->handle.drained();
                          }
                      });
}

void AgentLink::finish() {
    finishing = true;
    if (queue.empty() && sending.empty()) close();
}

void AgentLink::close() {
    if (std::exchange(over, true)) return;
    asio::error_code fault;
    socket.close(fault);
    asio::post(socket.get_executor(), [self = shared_from_this()] {
        if (self->handle.closed) self->handle.closed();
        self->handle = {};
    });
}

long AgentLink::peerUser() {
    ucred peer{};
    socklen_t length = sizeof peer;
    asio::error_code fault;
    if (socket.local_endpoint(fault).protocol().family() != AF_UNIX || fault) return -1;
    if (::getsockopt(socket.native_handle(), SOL_SOCKET, SO_PEERCRED, &peer, &length) == -1)
        return -1;
    return peer.uid;
}

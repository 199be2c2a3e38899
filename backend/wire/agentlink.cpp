#include "backend/wire/agentlink.h"

#include "backend/os/descriptorpassing.h"
#include "common/brokenconnection.h"
#include "common/unixsock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <iterator>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace {

int familyOf(const Descriptor& socket) {
    sockaddr_storage own{};
    socklen_t length = sizeof own;
    if (::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&own), &length) == -1)
        return AF_UNSPEC;
    return own.ss_family;
}

} // namespace

AgentLink::AgentLink(EventLoop& eventLoop, Descriptor connected, int maxFrame)
    : loop(eventLoop),
      socket(std::move(connected)),
      stream(loop, socket.get()),
      most(maxFrame),
      reader(most),
      family(familyOf(socket)) {
    const int fd = socket.get();
    // None of the programs that this process starts may hold it.
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    ::fcntl(fd, F_SETFL, O_NONBLOCK);
    if (family != AF_INET && family != AF_INET6) return;
    // A command and its answer are small. A host that is gone without a word shows after a minute
    // and a half.
    const std::pair<int, int> settings[] = {
        {TCP_NODELAY, 1}, {TCP_KEEPIDLE, 30},        {TCP_KEEPINTVL, 10},
        {TCP_KEEPCNT, 6}, {TCP_USER_TIMEOUT, 90000},
    };
    for (const auto& [name, value] : settings)
        ::setsockopt(fd, IPPROTO_TCP, name, &value, sizeof value);
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof on);
}

void AgentLink::start(Handler& first) {
    handler = &first;
    waitToRead();
}

void AgentLink::setHandler(Handler* next, int maxFrame) {
    handler = next;
    most = maxFrame;
    reader.allow(maxFrame);
}

void AgentLink::waitToRead() {
    stream.whenReadable([self = shared_from_this()] { self->readSome(); });
}

void AgentLink::readSome() {
    std::array<char, 65536> buffer;
    const ssize_t got = receive(buffer.data(), buffer.size());
    if (got == 0 || (got == -1 && errno != EAGAIN && errno != EINTR)) return close();
    if (got > 0) reader.feed({buffer.data(), static_cast<std::size_t>(got)});
    takeRecords();
}

ssize_t AgentLink::receive(char* buffer, std::size_t size) {
    if (!takesDescriptors) return ::read(socket.get(), buffer, size);
    auto [got, handed] = DescriptorPassing::receive(socket.get(), buffer, size);
    std::ranges::move(handed, std::back_inserter(descriptors));
    return got;
}

Descriptor AgentLink::takeDescriptor() {
    Descriptor first;
    if (descriptors.empty()) return first;
    first = std::move(descriptors.front());
    descriptors.pop_front();
    return first;
}

void AgentLink::takeRecords() {
    try {
        while (!over) {
            if (handler && !handler->takesRecords()) {
                paused = true;
                return;
            }
            const auto body = reader.body();
            if (!body) break;
            AgentRecord record = AgentRecord::unpack(*body);
            if (parts.size() + record.body.size() > AgentRecord::maxBody) throw BrokenConnection();
            if (record.type == AgentRecord::PART) {
                // A peer that has not proved itself yet has nothing long to say.
                if (most < AgentRecord::maxFrame) throw BrokenConnection();
                parts += record.body;
                continue;
            }
            if (!parts.empty()) record.body.insert(0, std::exchange(parts, {}));
            if (handler) handler->onRecord(record);
        }
    } catch (const BrokenConnection&) {
        close();
    }
    if (!over) waitToRead();
}

void AgentLink::resume() {
    if (!std::exchange(paused, false)) return;
    // Never from within a call.
    loop.post([self = shared_from_this()] {
        if (!self->over) self->takeRecords();
    });
}

void AgentLink::send(const AgentRecord& record) {
    if (over || finishing) return;
    queue.add(record.frames());
    // Together with what else this turn of the loop has to say.
    if (!writing) waitToWrite();
}

void AgentLink::waitToWrite() {
    writing = true;
    stream.whenWritable([self = shared_from_this()] { self->writeSome(); });
}

void AgentLink::writeSome() {
    writing = false;
    if (!queue.send(socket.get())) return close();
    if (!queue.empty())
        waitToWrite();
    else if (finishing)
        ::shutdown(socket.get(), SHUT_WR);
    if (queue.drained() && handler) handler->onDrained();
}

// To close while something comes would take back what the other side has not read yet.
void AgentLink::finish() {
    if (over || std::exchange(finishing, true)) return;
    if (!writing) waitToWrite();
}

void AgentLink::close() {
    if (std::exchange(over, true)) return;
    stream.release();
    socket.reset();
    loop.post([self = shared_from_this()] {
        if (Handler* const last = std::exchange(self->handler, nullptr)) last->onClosed();
    });
}

long AgentLink::peerUser() const {
    const auto user = family == AF_UNIX ? UnixSocket::peerUserOf(socket.get()) : std::nullopt;
    return user ? long{*user} : -1;
}

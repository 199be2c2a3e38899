#include "backend/os/sendqueue.h"

#include <cerrno>
#include <sys/socket.h>
#include <utility>

namespace {

// Short pieces leave together.
constexpr std::size_t shortPiece = 64 * 1024;

} // namespace

void SendQueue::add(std::string bytes) {
    if (bytes.empty()) return;
    waiting += bytes.size();
    wasCongested |= congested();
    if (!queue.empty() && !queue.back().shared &&
        queue.back().own.size() + bytes.size() <= shortPiece)
        queue.back().own += bytes;
    else
        queue.push_back({std::move(bytes), nullptr});
}

void SendQueue::add(std::shared_ptr<const std::string> bytes) {
    if (bytes->size() <= shortPiece) return add(std::string(*bytes));
    waiting += bytes->size();
    wasCongested |= congested();
    queue.push_back({{}, std::move(bytes)});
}

bool SendQueue::send(int socket) {
    while (!queue.empty()) {
        const std::string& first = queue.front().bytes();
        const ssize_t put =
            ::send(socket, first.data() + sent, first.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (put == -1 && errno == EINTR) continue;
        // The kernel may be short of memory for the moment.
        if (put == -1) return errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM;
        sent += static_cast<std::size_t>(put);
        waiting -= static_cast<std::size_t>(put);
        if (sent < first.size()) continue;
        queue.pop_front();
        sent = 0;
    }
    return true;
}

bool SendQueue::drained() { return waiting < low && std::exchange(wasCongested, false); }

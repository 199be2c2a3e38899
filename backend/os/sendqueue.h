#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string>

/// What waits to be sent on a socket whose other end may be slow. Does not wait by itself: call
/// send when the socket can be written.
class SendQueue {
  public:
    /// Congested beyond highWater bytes, and drained again below lowWater.
    SendQueue(std::size_t highWater, std::size_t lowWater) : high(highWater), low(lowWater) {}

    void add(std::string bytes);
    /// The same; the bytes may wait in other queues, too.
    void add(std::shared_ptr<const std::string> bytes);
    /// Sends what the socket takes at the moment; false when the connection is broken.
    bool send(int socket);
    bool empty() const { return queue.empty(); }
    /// The bytes that wait.
    std::size_t size() const { return waiting; }
    /// Whether so much waits that no more should be produced.
    bool congested() const { return waiting > high; }
    /// Whether little is left after it was congested; true once.
    bool drained();

  private:
    struct Piece {
        std::string own;
        std::shared_ptr<const std::string> shared; // null: it is `own`

        const std::string& bytes() const { return shared ? *shared : own; }
    };

    const std::size_t high, low;
    std::deque<Piece> queue;
    std::size_t waiting = 0; // bytes
    std::size_t sent = 0;    // of the queue's first
    bool wasCongested = false;
};

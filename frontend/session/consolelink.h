#pragma once

#include "common/command.h"
#include "common/framereader.h"
#include "common/unixsock.h"

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include <deque>
#include <functional>
#include <memory>
#include <string>

/// The connection to one console. Never blocks: what the console does not read yet waits in a
/// queue. One thread. Its handlers run from the event loop, never from within a call.
class ConsoleLink : public std::enable_shared_from_this<ConsoleLink> {
  public:
    struct Handler {
        std::function<void(const Command&)> command;
        /// The connection is over, by either side; the last call.
        std::function<void()> closed;
        /// The queue has become short again after it was long.
        std::function<void()> drained;
    };

    ConsoleLink(asio::io_context& loop, std::unique_ptr<UnixSocket> connection);

    /// Begins to read. The link lives until its connection is closed.
    void start(Handler handler);
    /// Queues bytes.
    void send(std::string bytes);
    /// Bytes that wait.
    std::size_t queued() const { return waiting; }
    /// Whether so much waits that no more should be produced for this console.
    bool congested() const { return waiting > highWater; }
    /// Whether the console has closed its end, which may be seen before all is read that it sent.
    bool abandoned() const;
    /// Closes after what is queued was sent.
    void finish();
    /// Closes at once.
    void close();

  private:
    static constexpr std::size_t highWater = 4 * 1024 * 1024;
    static constexpr std::size_t lowWater = 512 * 1024;

    std::unique_ptr<UnixSocket> socket;
    asio::posix::stream_descriptor stream;
    Handler handle;
    FrameReader reader;
    std::deque<std::string> queue;
    std::size_t waiting = 0;
    std::size_t sent = 0; // of the queue's first
    bool writing = false;
    bool full = false;
    bool finishing = false;
    bool over = false;

    void waitToRead();
    void waitToWrite();
    void readSome();
    void writeSome();
};

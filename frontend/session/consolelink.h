#pragma once

#include "backend/os/eventloop.h"
#include "backend/os/sendqueue.h"
#include "backend/os/stream.h"
#include "common/command.h"
#include "common/framereader.h"
#include "common/unixsock.h"

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

    ConsoleLink(EventLoop& loop, std::unique_ptr<UnixSocket> connection);

    /// Begins to read. The link lives until its connection is closed.
    void start(Handler handler);
    /// Queues bytes.
    void send(std::string bytes);
    /// Whether so much waits that no more should be produced for this console.
    bool congested() const { return queue.congested(); }
    /// Whether the console has closed its end, which may be seen before all is read that it sent.
    bool abandoned() const;
    /// Closes after what is queued was sent.
    void finish();
    /// Closes at once.
    void close();

  private:
    EventLoop& loop;
    std::unique_ptr<UnixSocket> socket;
    Stream stream;
    Handler handle;
    FrameReader reader;
    SendQueue queue{4 * 1024 * 1024, 512 * 1024};
    bool writing = false;
    bool finishing = false;
    bool over = false;

    void waitToRead();
    void waitToWrite();
    void readSome();
    void writeSome();
};

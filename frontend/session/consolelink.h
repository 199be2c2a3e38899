#pragma once

#include "backend/os/eventloop.h"
#include "backend/os/sendqueue.h"
#include "backend/os/stream.h"
#include "common/command.h"
#include "common/framereader.h"
#include "common/unixsock.h"

#include <memory>
#include <string>

/// The connection to one console. Never blocks: what the console does not read yet waits in a
/// queue. One thread.
class ConsoleLink : public std::enable_shared_from_this<ConsoleLink> {
  public:
    /// Hears of consoles, by their numbers; from the event loop, never from within a call.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// May throw BrokenConnection, which closes the link.
        virtual void onLinkCommand(int console, const Command& command) = 0;
        /// The connection is over, by either side; the last call.
        virtual void onLinkClosed(int console) = 0;
        /// The queue has become short again after it was long.
        virtual void onLinkDrained(int console) = 0;
    };

    /// The owner must outlive the loop's last turn.
    ConsoleLink(EventLoop& loop, Owner& owner, int console, std::unique_ptr<UnixSocket> connection);

    /// Begins to read. The link lives until its connection is closed.
    void start();
    /// Queues bytes.
    void send(std::string bytes);
    /// The same; the bytes may wait for other links, too.
    void send(std::shared_ptr<const std::string> bytes);
    /// Whether so much waits that no more should be produced for this console.
    bool congested() const { return queue.congested(); }
    /// Whether the console has closed its end; what it sent before may be unread still.
    bool abandoned() const;
    /// Sends what is queued, then closes.
    void finish();
    /// Closes at once.
    void close();

  private:
    EventLoop& loop;
    Owner& owner;
    const int console;
    std::unique_ptr<UnixSocket> socket;
    Stream stream;
    FrameReader reader;
    SendQueue queue{4 * 1024 * 1024, 512 * 1024};
    bool writing = false;
    bool finishing = false;
    bool over = false;

    void waitToRead();
    template <class Bytes>
    void enqueue(Bytes bytes);
    void waitToWrite();
    void readSome();
    void writeSome();
};

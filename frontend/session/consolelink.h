#pragma once

#include "backend/os/clock.h"
#include "backend/os/eventloop.h"
#include "backend/os/sendqueue.h"
#include "backend/os/stream.h"
#include "common/command.h"
#include "common/framereader.h"
#include "common/unixsock.h"

#include <memory>
#include <string>

/// The connection to one console. Never blocks: what the console does not read yet waits in a
/// queue. Beyond a bound, the console's own commands wait, too; when it reads nothing for half a
/// minute then, it is dropped. One thread.
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
        /// The queue has become short again after it was long, or full.
        virtual void onLinkDrained(int console) = 0;
        /// The console has read nothing for so long, with so many bytes before it, that it is
        /// dropped; or this one has sent so many bytes of an unfinished record.
        virtual void onLinkStuck(int console, const std::string& why) = 0;
        /// The console's unfinished record has grown.
        virtual void onLinkParked(int console) = 0;
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
    /// Whether no more may be produced for it, whoever waits for that.
    bool full() const { return queue.size() > maxWaiting; }
    /// The bytes of a record that the console has begun to send.
    std::size_t parked() const { return reader.waiting(); }
    /// The terminal at which the console's user types, "pts/3"; empty: none, or unknown.
    std::string terminal() const;
    /// Closes, and tells why.
    void drop(const std::string& why);
    /// Whether the console has closed its end; what it sent before may be unread still.
    bool abandoned() const;
    /// Sends what is queued, then closes.
    void finish();
    /// Closes at once.
    void close();

    /// Bytes that may wait for a console, but for the record that reaches that.
    static constexpr std::size_t maxWaiting = 64 * 1024 * 1024;

  private:
    EventLoop& loop;
    Owner& owner;
    const int console;
    std::unique_ptr<UnixSocket> socket;
    Timer patience; // with a console that is full
    Stream stream;
    FrameReader reader;
    SendQueue queue{4 * 1024 * 1024, 512 * 1024};
    bool writing = false;
    Clock::time_point readAt; // when the console has read last, or there was nothing to read
    bool held = false;        // its commands wait
    bool finishing = false;
    bool over = false;

    void waitToRead();
    void watch();
    template <class Bytes>
    void enqueue(Bytes bytes);
    void waitToWrite();
    void readSome();
    void takeCommands();
    void writeSome();
};

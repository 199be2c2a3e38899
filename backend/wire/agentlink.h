#pragma once

#include "backend/os/sendqueue.h"
#include "backend/os/stream.h"
#include "backend/wire/agentrecord.h"
#include "common/descriptor.h"
#include "common/framereader.h"

#include <functional>
#include <memory>
#include <string>

/// The connection between an agent and the front end, at either end. Never blocks: what the other
/// side does not read yet waits in a queue. One thread. Its handlers run from the event loop, never
/// from within a call.
class AgentLink : public std::enable_shared_from_this<AgentLink> {
  public:
    struct Handler {
        std::function<void(const AgentRecord&)> record;
        /// The connection is over, by either side; the last call.
        std::function<void()> closed;
        /// Whether to go on reading; when not, resume begins again. None: always.
        std::function<bool()> mayRead;
        /// The queue has become short again after it was long. None: of no interest.
        std::function<void()> drained;
    };

    /// Takes a connected socket. Frames that come may have at most `largest` bytes.
    AgentLink(EventLoop& loop, Descriptor socket, int largest);

    /// Begins to read. The link lives until its connection is closed.
    void start(Handler handler);
    /// Other handlers and another limit from now on: whoever is there is known now.
    void setHandler(Handler handler, int largest);
    void send(const AgentRecord& record);
    /// Whether so much waits that no more should be produced.
    bool congested() const { return queue.congested(); }
    void resume();
    /// Closes at once.
    void close();
    bool open() const { return !over; }
    /// The user at the other end of a local socket (SO_PEERCRED); -1: it tells none.
    long peerUser() const;

  private:
    EventLoop& loop;
    Descriptor socket;
    Stream stream; // of the socket
    Handler handle;
    FrameReader reader;
    SendQueue queue{1024 * 1024, 128 * 1024};
    const int family; // of the socket's address
    bool writing = false;
    bool paused = false;
    bool over = false;

    void waitToRead();
    void readSome();
    void takeRecords();
    void waitToWrite();
    void writeSome();
};

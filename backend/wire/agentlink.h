#pragma once

#include "backend/os/sendqueue.h"
#include "backend/os/stream.h"
#include "backend/wire/agentrecord.h"
#include "common/descriptor.h"
#include "common/framereader.h"

#include <deque>
#include <memory>
#include <string>
#include <sys/types.h>

/// The connection between an agent and the front end, at either end. Never blocks: what the other
/// side does not read yet waits in a queue. One thread.
class AgentLink : public std::enable_shared_from_this<AgentLink> {
  public:
    /// Hears of a link; from the event loop, never from within a call.
    class Handler {
      public:
        virtual ~Handler() = default;
        /// May give the link another handler. A BrokenConnection from it closes the link.
        virtual void onRecord(const AgentRecord& record) = 0;
        /// The connection is over, by either side; the last call.
        virtual void onClosed() = 0;
        /// Whether to go on reading; when not, resume begins again.
        virtual bool takesRecords() { return true; }
        /// The queue has become short again after it was long.
        virtual void onDrained() {}
    };

    /// Takes a connected socket. Frames that come may have at most `maxFrame` bytes.
    AgentLink(EventLoop& loop, Descriptor socket, int maxFrame);

    /// Begins to read. The link lives until its connection is closed.
    void start(Handler& handler);
    /// Another handler, and another limit for frames that come, from now on; null: records that
    /// come are dropped. A handler must live until the link is closed or has another one.
    void setHandler(Handler* handler, int maxFrame);
    void send(const AgentRecord& record);
    /// Whether so much waits that no more should be produced.
    bool congested() const { return queue.congested(); }
    /// Reads on after takesRecords has said no.
    void resume();
    /// Sends what is queued, then says that no more comes; closes when the other side does.
    void finish();
    /// Closes at once.
    void close();
    bool open() const { return !over; }
    /// The user at the other end of a local socket (SO_PEERCRED); -1: the socket tells none.
    long peerUser() const;

    /// Descriptors that come over a local socket are kept from now on, not dropped.
    void expectDescriptors() { takesDescriptors = true; }
    /// The one that has come first and was not taken yet; those of a record are there when the
    /// record is. None: there is no other.
    Descriptor takeDescriptor();

  private:
    EventLoop& loop;
    Descriptor socket;
    Stream stream; // of the socket
    Handler* handler = nullptr;
    int most; // bytes of a frame that comes
    FrameReader reader;
    std::string parts; // the beginning of the next record's body
    SendQueue queue{1024 * 1024, 128 * 1024};
    const int family; // of the socket's address
    std::deque<Descriptor> descriptors;
    bool takesDescriptors = false;
    bool writing = false;
    bool paused = false;
    bool finishing = false;
    bool over = false;

    void waitToRead();
    void readSome();
    ssize_t receive(char* buffer, std::size_t size);
    void takeRecords();
    void waitToWrite();
    void writeSome();
};

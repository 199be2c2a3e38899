#pragma once

#include "backend/os/eventloop.h"
#include "backend/os/stream.h"
#include "common/command.h"
#include "common/data.h"
#include "common/reply.h"
#include "frontend/session/consolelink.h"
#include "frontend/session/session.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

/// The consoles of a session: lets them in, numbers them from 1, and carries records. One thread;
/// the handlers run from the event loop.
class Consoles {
  public:
    struct Handler {
        /// A console is about to get its number; it may send commands from then on.
        std::function<void(int console)> joined;
        std::function<void(int console, const Command& command)> command;
        /// Its connection is over.
        std::function<void(int console)> left;
        /// One that was congested is so no more.
        std::function<void()> drained;
    };

    /// At most so many at a time. The session must live as long as this.
    Consoles(EventLoop& loop, Session& session, std::size_t most, Handler handler);
    ~Consoles();

    /// Lets consoles in; they wait for their numbers.
    void listen();
    /// All get their numbers, and those that come from now on at once.
    void serve();
    /// Lets nobody in any more.
    void close();
    /// Closes each connection after what was sent on it.
    void finish();

    void send(int console, const Reply& reply);
    /// Output for a console that only looks on and does not keep up is dropped.
    void send(int console, const Data& data);
    /// Whether so much waits for it that no more should be produced.
    bool congested(int console) const;
    bool contains(int console) const { return links.contains(console); }
    /// Whether there is none, not even one that is being closed.
    bool empty() const { return links.empty(); }
    /// Those that have closed their end count no more, though what they sent may be unread.
    std::size_t open() const;
    bool full() const { return open() >= most; }
    /// Whether there has ever been one.
    bool met() const { return last != 0; }

  private:
    EventLoop& loop;
    Session& session;
    const std::size_t most;
    const Handler handle;
    Stream listener;
    Timer pause;
    std::map<int, std::shared_ptr<ConsoleLink>> links;
    int last = 0;
    bool serving = false;
    bool closed = false;

    void add(std::unique_ptr<UnixSocket> connection);
    void number(int id);
    void sendBytes(int id, const std::string& bytes);
};

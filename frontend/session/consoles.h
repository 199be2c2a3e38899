#pragma once

#include "backend/os/eventloop.h"
#include "backend/os/stream.h"
#include "common/command.h"
#include "common/data.h"
#include "common/reply.h"
#include "frontend/session/consolelink.h"
#include "frontend/session/session.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

/// The consoles of a session: lets them in, numbers them from 1, and carries records. One thread.
class Consoles : public ConsoleLink::Owner {
  public:
    /// Hears of consoles from the event loop.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// A console is about to get its number; it may send commands from then on.
        virtual void onConsoleJoined(int console) = 0;
        virtual void onCommand(int console, const Command& command) = 0;
        /// The console's connection is over.
        virtual void onConsoleLeft(int console) = 0;
        /// A console that was congested, or full, is so no more.
        virtual void onConsoleDrained() = 0;
        /// A console was dropped, for this reason; onConsoleLeft follows.
        virtual void onConsoleDropped(int console, const std::string& why) = 0;
    };

    /// At most `limit` consoles at a time. The session and the owner must outlive the loop's last
    /// turn.
    Consoles(EventLoop& loop, Session& session, std::size_t limit, Owner& owner);
    ~Consoles() override;

    /// Lets consoles in; they wait for their numbers.
    void listen();
    /// Gives each console its number; later ones get theirs at once.
    void serve();
    /// Lets no console in any more.
    void close();
    /// Sends what is queued for each console, then closes its connection.
    void finish();

    void send(int console, const Reply& reply);
    /// One packed record for all of them. Output for a console that only looks on and does not keep
    /// up is dropped.
    void send(const std::vector<int>& to, const Data& data);
    /// Whether so much waits for the console that no more should be produced.
    bool congested(int console) const;
    /// Whether so much waits for the console that no more may be produced, whoever waits for that.
    bool full(int console) const;
    /// Whether there are several.
    bool several() const { return links.size() > 1; }
    /// "console 2 on pts/3".
    std::string describe(int console) const;
    bool contains(int console) const { return links.contains(console); }
    /// Whether there is no console, neither open nor being closed.
    bool empty() const { return links.empty(); }
    /// How many are open: a console that has closed its end counts no more, though what it sent may
    /// be unread.
    std::size_t open() const;
    bool full() const { return open() >= limit; }
    /// Whether there has ever been one.
    bool met() const { return lastNumber != 0; }

  private:
    EventLoop& loop;
    Session& session;
    const std::size_t limit;
    Owner& owner;
    Stream listener;
    Timer pause; // before the next try to accept
    std::map<int, std::shared_ptr<ConsoleLink>> links;
    int lastNumber = 0;
    bool serving = false;
    bool closed = false;

    void add(std::unique_ptr<UnixSocket> connection);
    void number(int console);
    void sendBytes(int console, const std::string& bytes);

    // ConsoleLink::Owner
    void onLinkCommand(int console, const Command& command) override;
    void onLinkClosed(int console) override;
    void onLinkDrained(int console) override;
    void onLinkStuck(int console, const std::string& why) override;
    void onLinkParked(int console) override;
};

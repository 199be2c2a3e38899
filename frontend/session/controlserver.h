#pragma once

#include "backend/os/eventloop.h"
#include "backend/os/stream.h"
#include "frontend/session/channel.h"

#include <map>
#include <memory>
#include <string>

/// The session's side of its lines: to foregrounds (Foreground) and to programs that ask about the
/// session. The texts that come in, and the answers:
///
///   attend       a foreground has started its console
///   left         the foreground's console has ended. The answer is "goes on", a blank and the
///                number of open consoles; or "is full", a blank and that number when the session
///                had no room for this console; when the session has ended, the line is closed
///   hung up      the same, because the terminal is gone
///   give up      the start is to be given up
///   serve        a report is wanted at once: the start is to be over with what has started
///   go on        the first foreground was told "ask", a blank and a question, and the user has
///                pressed the key for yes
///   end N        the session is to end, with exit status N
///   facts        the answer is what is known of the session
///
/// One thread.
class ControlServer {
  public:
    enum Leave { LEFT, HUNG_UP, VANISHED };
    /// Hears of all this from the event loop.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// The console of a foreground is gone; `first`: of the foreground that started the
        /// session. Gives the answer; empty: none.
        virtual std::string onConsoleEnded(bool first, Leave how) = 0;
        /// The first foreground has gone, after its console.
        virtual void onFirstGone() = 0;
        virtual void onGiveUp() = 0;
        virtual void onServe() = 0;
        virtual void onGoOn() = 0;
        virtual void onEnd(int exitStatus) = 0;
        virtual std::string facts() const = 0;
    };

    /// The line to the first foreground, and the listener for others; the listener and the owner
    /// must outlive this.
    ControlServer(EventLoop& loop, Channel first, const Descriptor& listener, Owner& owner);
    ~ControlServer();

    /// How many foregrounds have a console that runs.
    int present() const;
    /// Has the first foreground ask the user: onGoOn or onGiveUp.
    void ask(const std::string& question);

  private:
    struct Line {
        Line(EventLoop& loop, Channel end) : channel(std::move(end)), stream(loop, channel.fd()) {}
        Channel channel;
        Stream stream;
        bool attends = false;
    };

    Owner& owner;
    EventLoop& loop;
    const Descriptor& listener;
    Stream door;
    Timer pause; // after a peer that could not be accepted
    std::map<int, std::unique_ptr<Line>> lines;
    int lastNumber = 0; // of a line; that of the first foreground is 0

    void listen();
    void add(int id, Channel channel);
    void waitToHear(int id);
    void hear(int id);
    void act(int id, const std::string& text);
};

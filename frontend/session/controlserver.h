#pragma once

#include "backend/os/eventloop.h"
#include "backend/os/stream.h"
#include "frontend/session/channel.h"

#include <functional>
#include <map>
#include <memory>
#include <string>

/// The session's side of its lines to front parts and to those who ask about it. What they say:
///
///   attend       a front part whose console has been started
///   left         its console has ended; the answer is "goes on", a blank and the number of
///   consoles
///                left, or "is full" and that number when it has as many as it may have and so did
///                not take that one; or the line is closed when the session has ended
///   hung up      the same, because the terminal is gone
///   give up      the start is to be given up
///   end N        the session is to end, with exit status N
///   facts        what is known of the session, as the answer
///
/// One thread; the handlers run from the event loop.
class ControlServer {
  public:
    enum Leave { LEFT, HUNG_UP, VANISHED };
    struct Handler {
        /// A front part's console is gone: the first front part's, or another's. What to answer.
        std::function<std::string(bool first, Leave how)> left;
        /// The first front part has gone, after its console.
        std::function<void()> alone;
        std::function<void()> giveUp;
        std::function<void(int status)> end;
        std::function<std::string()> facts;
    };

    /// The first front part's line, and where others come; the listener must live as long as this.
    ControlServer(EventLoop& loop, Channel first, const Descriptor& listener, Handler handler);
    ~ControlServer();

    /// Front parts whose console runs.
    int present() const;
    /// Nobody comes any more.
    void stopListening();

  private:
    struct Line {
        Line(EventLoop& loop, Channel end) : channel(std::move(end)), stream(loop, channel.fd()) {}
        Channel channel;
        Stream stream;
        bool attends = false;
    };

    Handler handle;
    EventLoop& loop;
    const Descriptor& listener;
    Stream door;
    std::map<int, std::unique_ptr<Line>> lines;
    int last = 0; // the first front part's is 0

    void listen();
    void add(int id, Channel channel);
    void waitToHear(int id);
    void hear(int id);
    void act(int id, const std::string& text);
};

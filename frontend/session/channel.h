#pragma once

#include "common/descriptor.h"

#include <optional>
#include <string>
#include <utility>

/// One end of a line between a session and a Foreground, or another program that asks about the
/// session: short texts, each whole, in order. Never blocks but in `to` and `await`. Move only.
class Channel {
  public:
    Channel() = default;
    explicit Channel(Descriptor end) : socket(std::move(end)) {}
    /// Two ends, for a process and its child. Throws std::system_error.
    static std::pair<Channel, Channel> pair();
    /// A line to the process that listens under a name in the abstract namespace (unix(7)); nothing
    /// when there is none, or when it is another user's. Waits while the listener's queue is full.
    static std::optional<Channel> to(const std::string& name);
    /// Listens under such a name; none when the name is taken. Closed in a program that is
    /// executed.
    static Descriptor listenAs(const std::string& name);
    /// The next line; nothing when none waits, or when it is another user's.
    static std::optional<Channel> accept(const Descriptor& listener);

    int fd() const { return socket.get(); }
    explicit operator bool() const { return bool(socket); }
    void close() { socket.reset(); }
    /// False when the other end is gone or does not listen.
    bool say(const std::string& text) const;
    /// The next text; nothing when there is none yet. `over`: the line has ended.
    std::optional<std::string> hear(bool& over) const;
    /// Waits at most this long for the next text, in ms.
    std::optional<std::string> await(int ms) const;

  private:
    Descriptor socket;
};

#pragma once

#include "common/descriptor.h"

#include <optional>
#include <string>
#include <utility>

/// One end of a line between a session and a front part (see Foreground) or somebody who asks about
/// the session: short texts, each whole, in order. Never blocks but where it says so. Move only.
class Channel {
  public:
    Channel() = default;
    explicit Channel(Descriptor end) : socket(std::move(end)) {}
    /// Two ends, for a process and its child. Throws std::system_error.
    static std::pair<Channel, Channel> pair();
    /// To what listens under a name in the abstract namespace (unix(7)); nothing when nobody does,
    /// or when another user does.
    static std::optional<Channel> to(const std::string& name);
    /// Listens under such a name; none when the name is taken. Not for another program that is
    /// executed.
    static Descriptor listenAs(const std::string& name);
    /// The next one who has come; nothing when nobody waits, or when it is another user.
    static std::optional<Channel> accept(const Descriptor& listener);

    int fd() const { return socket.get(); }
    explicit operator bool() const { return bool(socket); }
    void close() { socket.reset(); }
    /// False when the other end is gone or does not listen.
    bool say(const std::string& text) const;
    /// The next text; nothing when there is none, and then `over` tells whether none will come.
    std::optional<std::string> hear(bool& over) const;
    /// Waits so long for the next text, in ms.
    std::optional<std::string> await(int ms) const;

  private:
    Descriptor socket;
};

#pragma once

#include "common/descriptor.h"
#include "common/unixsock.h"
#include "frontend/session/channel.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A session's number and the sockets that it listens on: one for consoles, and one for foregrounds
/// and other programs that ask about the session. The number is claimed first, by a name that the
/// kernel gives to one process only (and to those that it forks) and takes back when that ends,
/// however it ends; so a socket file that a dead session left behind is no obstacle. Removes its
/// file when destroyed.
class Session {
  public:
    /// Takes the first free number from `from` up (SessionFile). Throws std::runtime_error with a
    /// sentence that names whose files are in the way when there is none.
    explicit Session(int from = 1);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    int number() const { return id; }
    /// Where consoles connect.
    const std::string& path() const { return file; }
    /// The listening descriptor, non-blocking.
    int listener() const { return socket->getFd(); }
    /// Where foregrounds and other programs come, by reach.
    const Descriptor& control() const { return door; }
    /// The next connection; null when nobody waits, or when the peer is neither this user nor root.
    std::unique_ptr<UnixSocket> accept();

    /// For a process that shares this session with its server: no longer listens, but keeps the
    /// number taken and removes the file.
    void stopListening();
    /// For a process that only runs a console of this session: leaves the sockets to the others,
    /// but keeps the number taken, or that console, late, could connect to the next session of that
    /// number.
    void leave();

    /// A line to the living session of that number; nothing when this user has none.
    static std::optional<Channel> reach(int number);
    /// The numbers of which this user has socket files, ascending; their sessions may be dead.
    static std::vector<int> candidates();
    /// Removes the socket file of that number, unless its session lives.
    static void removeDead(int number);

  private:
    int id = 0;
    std::string file;
    Descriptor claim;
    Descriptor door;
    std::optional<UnixSocket> socket;

    bool take(int number);
};

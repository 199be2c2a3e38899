#pragma once

#include "common/unixsock.h"
#include "frontend/descriptor.h"

#include <memory>
#include <optional>
#include <string>

/// A session's number and its listening socket. The number is claimed first by a name that the
/// kernel gives to one process only and takes back when that ends, however it ends; so a socket
/// file that a dead session left behind is no obstacle. Removes its file when destroyed.
class Session {
  public:
    static constexpr int maxNumber = 99999;

    /// Takes the first free number from `from` up. Throws std::runtime_error when there is none.
    explicit Session(int from = 1);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    int number() const { return id; }
    /// Where consoles connect.
    const std::string& path() const { return file; }
    /// The listening descriptor, non-blocking.
    int listener() const { return socket->getFd(); }
    /// The next connection; null when nobody waits, or when the peer is neither this user nor root.
    std::unique_ptr<UnixSocket> accept();

    static std::string pathOf(int number);

  private:
    int id = 0;
    std::string file;
    Descriptor claim;
    std::optional<UnixSocket> socket;

    bool take(int number);
};

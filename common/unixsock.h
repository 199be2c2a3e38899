#pragma once

#include "common/brokenconnection.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

/// The byte stream between a console and its front end: a local stream socket named after the
/// session. Owns one descriptor and has no lock: read and write are independent of each other, and
/// threads that share a direction arrange the exclusion themselves.
class UnixSocket {
  public:
    UnixSocket() = default;
    /// Takes over an existing descriptor.
    explicit UnixSocket(int fd) : socket(fd) {}
    virtual ~UnixSocket() { close(); }
    UnixSocket(const UnixSocket&) = delete;
    UnixSocket& operator=(const UnixSocket&) = delete;

    /// The descriptor; -1 when no socket is open.
    int getFd() const { return socket; }

    /// Connects to a listening front end, one attempt a second. Returns 0, or 111 after `timeout`
    /// attempts at which nobody was listening. Other failures raise Error 200.
    int connect(const char* path, int timeout);
    /// Creates the listening socket, private to its user; a file of that name is removed first.
    /// Raises Error 200.
    void bind(const char* path);
    /// Accepts one connection; peer receives the path of the peer's address. Raises Error 200.
    std::unique_ptr<UnixSocket> accept(std::string& peer);

    /// Reads exactly len bytes; throws BrokenConnection. Also works on a non-blocking descriptor.
    void read(void* buf, int len);
    /// Reads what has come, at least one byte and at most len; how many there were. Throws
    /// BrokenConnection.
    std::size_t readSome(void* buf, std::size_t len);
    /// Writes all len bytes, going on after a write that a signal cut short; throws
    /// BrokenConnection.
    void write(const void* buf, int len);
    /// Appends one text that ends with a newline, without the newline; only the last byte of what
    /// one read delivers is tested for it. Throws BrokenConnection.
    void readST(std::string& text);
    /// Appends one request that ends with an empty line; its two newlines become two NULs. Throws
    /// BrokenConnection.
    void readReq(std::string& text);

    /// Ends the stream in both directions but keeps the descriptor: a thread that is blocked in
    /// read gets BrokenConnection. May be called from another thread than the reader's.
    void disconnect();
    /// Reads and drops what still comes until the peer closes, for at most ms milliseconds.
    void awaitEnd(int ms);
    /// Ends the stream and closes the descriptor.
    void close();
    /// Closes the descriptor alone, for one that another process shares and goes on using.
    void drop();
    void async();
    void setSbuf(int bytes);
    void setRbuf(int bytes);

    /// A descriptor that, as soon as it is readable, ends a blocked read with BrokenConnection, and
    /// a blocked write that takes more than `grace` ms from then on; -1 for none. Not owned.
    void setCancelFd(int fd, int grace = 0) {
        cancelFd = fd;
        cancelGrace = grace;
    }

    /// The user id of the process at the other end (SO_PEERCRED); raises Error 200.
    unsigned peerUser() const;
    /// The same for any local socket; nothing when it cannot be told.
    static std::optional<unsigned> peerUserOf(int fd);

  private:
    int socket = -1;
    int cancelFd = -1;
    int cancelGrace = 0; // ms

    void open();
    void waitToRead();
    void waitToWrite();
};

#pragma once

#include "common/command.h"

#include <optional>
#include <string>
#include <string_view>

/// Cuts the bytes of a connection into frames. Memory grows with the bytes that arrive.
class FrameReader {
  public:
    /// The largest frame that a console has reason to send: a group of a million clients.
    static constexpr int maxFrame = 16 * 1024 * 1024;

    /// Frames have at most this many bytes, until allow says otherwise.
    explicit FrameReader(int largest = maxFrame) : most(largest) {}

    void allow(int largest) { most = largest; }
    void feed(std::string_view bytes) { buffer.append(bytes); }
    /// The bytes that wait for the rest of their frame.
    std::size_t waiting() const { return buffer.size(); }
    /// The body of the next whole frame; nothing when more bytes are needed. Throws
    /// BrokenConnection when it says that it is longer than allowed.
    std::optional<std::string> body();
    /// The next whole command; nothing when more bytes are needed. Throws BrokenConnection when the
    /// frame lies about its lengths or is longer than allowed.
    std::optional<Command> next();

  private:
    std::string buffer;
    int most;
};

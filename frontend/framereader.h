#pragma once

#include "common/command.h"

#include <optional>
#include <string>
#include <string_view>

/// Cuts the bytes of a console's connection into commands. Memory grows with the bytes that arrive.
class FrameReader {
  public:
    /// The largest frame that a console has reason to send: a group of a million clients.
    static constexpr int maxFrame = 16 * 1024 * 1024;

    void feed(std::string_view bytes) { buffer.append(bytes); }
    /// The next whole command; nothing when more bytes are needed. Throws BrokenConnection when the
    /// frame lies about its lengths or is longer than maxFrame.
    std::optional<Command> next();

  private:
    std::string buffer;
};

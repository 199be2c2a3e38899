#pragma once

#include "common/descriptor.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Reads lines of any length from a descriptor, in large pieces.
class Source {
  public:
    /// Opens a file; "-" and the empty name are standard input. Throws std::system_error, which
    /// names the file.
    explicit Source(const std::string& name);

    enum Result { LINES, NOTHING, END };
    /// Reads what is there. With a patience, waits for it until that has passed (negative: for
    /// ever) or a signal has come, which may be blocked otherwise; without one, until it comes. The
    /// lines that are complete with it, without their newlines, hold until the next call. At the
    /// END comes the last one, if it has no newline. Throws std::system_error.
    Result read(std::optional<std::chrono::milliseconds> patience,
                std::vector<std::string_view>& lines);

  private:
    static constexpr std::size_t piece = 1024 * 1024;

    const std::string path;
    Descriptor opened;
    const int fd;
    std::string buffer;
    std::size_t filled = 0;   // bytes that were read
    std::size_t done = 0;     // of those that were handed over
    std::size_t searched = 0; // up to here there is no other newline
};

#pragma once

#include "backend/os/clock.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Cuts one client's output into lines.
///
/// An unfinished line is kept until its newline comes, or until the owner takes it as it stands.
/// What follows a taken line is a new line, but a newline alone is the end of the taken line.
class LineCutter {
  public:
    /// The lines that this text completes, without their newlines. NUL bytes are left out: a
    /// record's texts end at the first one.
    std::vector<std::string> feed(std::string_view text, Clock::time_point now);
    /// When the unfinished line began; nothing when there is none.
    std::optional<Clock::time_point> since() const { return began; }
    /// Takes the unfinished line as it stands; nothing when there is none.
    std::optional<std::string> takePartial();
    /// The end of the line that the cursor stands on, taken or not: a question that waits for its
    /// answer is there. At most 256 bytes.
    const std::string& tail() const { return line; }
    /// The question was answered or the command is over: the next byte begins a line.
    void breakLine();

  private:
    static constexpr std::size_t maxTail = 256;

    std::string partial;
    std::string line;
    bool taken = false;
    std::optional<Clock::time_point> began;
};

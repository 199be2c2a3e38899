#pragma once

#include "backend/os/clock.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Cuts one client's output into lines.
///
/// An unfinished line is kept until its newline comes, or until the owner takes it as it stands.
/// What follows a taken line continues it, and may be its end alone. A line is taken by itself when
/// it has grown to maxLine bytes, at the same byte for all clients.
class LineCutter {
  public:
    static constexpr std::size_t maxLine = 4 * 1024 * 1024;

    /// A line without its newline, or a stretch of one.
    struct Piece {
        std::string text;
        /// Whether it continues the piece before it.
        bool goesOn = false;
        /// Whether the line is complete.
        bool ended = true;
        bool operator==(const Piece&) const = default;
    };

    /// The lines that this text completes.
    std::vector<Piece> feed(std::string_view text, Clock::time_point now);
    /// When the unfinished line began, or the part of it that was not taken; nothing when there is
    /// none.
    std::optional<Clock::time_point> since() const { return began; }
    /// When bytes were last added to the unfinished line; of no meaning when there is none.
    Clock::time_point grownAt() const { return grown; }
    /// Takes the unfinished line as it stands, up to a UTF-8 character whose end is still to come
    /// or a carriage return; nothing when there is none.
    std::optional<Piece> takePartial();
    /// Takes all of the unfinished line, the next byte begins a line: a question was answered, or
    /// the command is over.
    std::optional<Piece> takeRest();
    /// The end of the line that the cursor stands on, taken or not: a question that waits for its
    /// answer is there. At most 256 bytes.
    const std::string& tail() const { return line; }

  private:
    static constexpr std::size_t maxTail = 256;

    std::string partial;
    std::string line;
    bool taken = false;
    std::optional<Clock::time_point> began;
    Clock::time_point grown;

    void keep(std::string_view text, std::vector<Piece>& pieces);
    Piece take(std::size_t length);
};

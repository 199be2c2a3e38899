#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Text that does nothing to the terminal which shows it. Its control bytes are written in caret
/// notation: "^[" for ESC, "^@" for NUL, "^?" for DEL, and "M-^[" for the upper control characters,
/// whether as single bytes or as UTF-8. A tab stays, and so does every other byte, in UTF-8 or not.
namespace SafeText {

/// A text without newlines. Takes time in proportion to its length, very little for plain ASCII.
std::string of(std::string text);
/// A line as a terminal would leave it: of the pieces between its carriage returns the last one
/// that is not empty.
std::string line(std::string text);
/// A character of UTF-8 (RFC 3629), or bytes that are the beginning of one at most.
struct Character {
    std::size_t bytes; // 1 to 4
    bool whole;
};
/// What begins at an index of the text.
Character character(std::string_view text, std::size_t at);
/// How many bytes at the end of the text are the beginning of a UTF-8 character, 0 to 3.
std::size_t unfinished(std::string_view text);

} // namespace SafeText

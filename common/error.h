#pragma once

#include "common/argument.h"

#include <array>
#include <cstdarg>
#include <string>

/// A numbered message with its arguments filled in, thrown for a user's mistake or a failure of the
/// system. Constructing one with a format or a number is the way of raising it: both constructors
/// throw the object and never complete. Catch it by reference and show it with dump.
class Error : public Value {
  public:
    static constexpr std::size_t bufferSize = 1024; ///< bytes, the NUL included

    /// An empty error; clears errno. The one constructor that completes.
    Error();
    /// Throws a free text (number 0), cut to fit the buffer.
    [[noreturn]] __attribute__((format(printf, 2, 3))) Error(const char* format, ...);
    /// Throws the catalog's message of that number with its conversions filled from the arguments,
    /// which must be those of the table's text. A number outside the table takes none and throws
    /// "Unknown error <number>.".
    [[noreturn]] Error(int number, ...);

    /// Throws the error that a peer reported by number and text. The text takes the place of the
    /// message's first conversion, whatever type that has, and further conversions are left out; a
    /// message without one stands as it is. No number and no text can make this go wrong.
    [[noreturn]] static void raiseReply(int number, const std::string& text);

    /// The message's number, 0 for a free text.
    int getErrNo() const { return errorNo; }
    const char* getErrMsg() const { return buffer.data(); }
    /// Prints the text on standard output: the bare text, or with the flag "ERROR: " and the number
    /// (when there is one) before it.
    void dump(bool withNumber) const;

  private:
    int errorNo = 0;
    std::array<char, bufferSize> buffer{};

    __attribute__((format(printf, 2, 0))) void fill(const char* format, std::va_list arguments);
    void copy(const std::string& text);
};

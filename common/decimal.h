#pragma once

#include <cstdint>

/// Decimal numbers, written straight into a buffer.
namespace Decimal {

constexpr int size = 11; // characters at most

/// Writes the number, without a NUL, and gives back the end of what it has written.
inline char* write(char* to, int number) {
    std::uint32_t rest = static_cast<std::uint32_t>(number);
    if (number < 0) {
        *to++ = '-';
        rest = 0 - rest;
    }
    int digits = 1;
    for (std::uint64_t limit = 10; rest >= limit; limit *= 10)
        ++digits;
    for (char* at = to + digits; at != to; rest /= 10)
        *--at = static_cast<char>('0' + rest % 10);
    return to + digits;
}

} // namespace Decimal

#pragma once

#include <array>
#include <cstdint>
#include <cstring>

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

namespace Detail {
constexpr auto threeDigits() {
    std::array<std::array<char, 4>, 1000> all{};
    for (int i = 0; i < 1000; ++i) {
        const auto digit = [](int n) { return static_cast<char>('0' + n % 10); };
        all[static_cast<std::size_t>(i)] = {digit(i / 100), digit(i / 10), digit(i), ' '};
    }
    return all;
}
inline constexpr auto lastThree = threeDigits();
} // namespace Detail

/// The same for many numbers, neighbours most of them: the digits above the last three are written
/// once for all that share them.
class Series {
  public:
    static constexpr int size = 16; // bytes of room that a number needs

    char* write(char* to, int number) {
        if (number < 1000) return Decimal::write(to, number);
        const int upper = number / 1000;
        if (upper != above) {
            above = upper;
            length = static_cast<std::size_t>(Decimal::write(prefix, upper) - prefix);
        }
        std::memcpy(to, prefix, sizeof prefix);
        std::memcpy(to + length,
                    Detail::lastThree[static_cast<std::size_t>(number - upper * 1000)].data(), 4);
        return to + length + 3;
    }

  private:
    int above = -1;
    std::size_t length = 0;
    char prefix[12] = {};
};

} // namespace Decimal

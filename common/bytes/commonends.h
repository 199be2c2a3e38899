#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

/// What two texts have in common at their ends, found eight bytes at a time.
namespace CommonEnds {

inline std::uint64_t eightAt(const char* at) {
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

/// How many bytes both begin with.
inline std::size_t head(std::string_view a, std::string_view b) {
    const std::size_t size = std::min(a.size(), b.size());
    std::size_t i = 0;
    if constexpr (std::endian::native == std::endian::little) {
        for (; i + 8 <= size; i += 8) {
            if (const auto odd = eightAt(a.data() + i) ^ eightAt(b.data() + i))
                return i + static_cast<std::size_t>(std::countr_zero(odd)) / 8;
        }
        if (size >= 8) {
            // The last eight, some of which are known to be equal.
            const auto odd = eightAt(a.data() + size - 8) ^ eightAt(b.data() + size - 8);
            return odd ? size - 8 + static_cast<std::size_t>(std::countr_zero(odd)) / 8 : size;
        }
    }
    while (i < size && a[i] == b[i])
        ++i;
    return i;
}

/// How many bytes both end with.
inline std::size_t tail(std::string_view a, std::string_view b) {
    const std::size_t size = std::min(a.size(), b.size());
    const char *endA = a.data() + a.size(), *endB = b.data() + b.size();
    std::size_t i = 0;
    if constexpr (std::endian::native == std::endian::little) {
        for (; i + 8 <= size; i += 8) {
            if (const auto odd = eightAt(endA - i - 8) ^ eightAt(endB - i - 8))
                return i + static_cast<std::size_t>(std::countl_zero(odd)) / 8;
        }
        if (size >= 8) {
            const auto odd = eightAt(endA - size) ^ eightAt(endB - size);
            return odd ? size - 8 + static_cast<std::size_t>(std::countl_zero(odd)) / 8 : size;
        }
    }
    while (i < size && a[a.size() - 1 - i] == b[b.size() - 1 - i])
        ++i;
    return i;
}

} // namespace CommonEnds

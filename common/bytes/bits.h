#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

/// Words of 64 bits, bit 0 first.
namespace Bits {

using Word = std::uint64_t;

/// The number of set bits: words are added up in groups before they are folded, since the plain
/// machine has no instruction for it.
inline std::size_t count(const Word* words, std::size_t number) {
    constexpr Word pairs = 0x5555555555555555, nibbles = 0x3333333333333333,
                   bytes = 0x0f0f0f0f0f0f0f0f;
    const auto byNibble = [](Word w) {
        w -= (w >> 1) & pairs;
        return (w & nibbles) + ((w >> 2) & nibbles); // at most 4 in each
    };
    std::size_t total = 0, i = 0;
    for (; i + 3 <= number; i += 3) {
        const Word sum = byNibble(words[i]) + byNibble(words[i + 1]) + byNibble(words[i + 2]);
        total += (((sum & bytes) + ((sum >> 4) & bytes)) * 0x0101010101010101) >> 56;
    }
    for (; i < number; ++i) {
        const Word sum = byNibble(words[i]);
        total += (((sum & bytes) + ((sum >> 4) & bytes)) * 0x0101010101010101) >> 56;
    }
    return total;
}

/// The first set bit at `from` or behind it; `size` (bits) when there is none.
inline std::size_t next(const Word* words, std::size_t size, std::size_t from) {
    if (from >= size) return size;
    std::size_t i = from / 64;
    Word w = words[i] & (~Word{0} << (from % 64));
    while (w == 0) {
        if (++i * 64 >= size) return size;
        w = words[i];
    }
    return i * 64 + static_cast<std::size_t>(std::countr_zero(w));
}

/// The first bit at `from` or behind it that is not set; `size` when there is none.
inline std::size_t nextClear(const Word* words, std::size_t size, std::size_t from) {
    if (from >= size) return size;
    std::size_t i = from / 64;
    Word w = ~words[i] & (~Word{0} << (from % 64));
    while (w == 0) {
        if (++i * 64 >= size) return size;
        w = ~words[i];
    }
    return i * 64 + static_cast<std::size_t>(std::countr_zero(w));
}

/// Where the set bits begin that lead up to this one, which is set.
inline std::size_t beginning(const Word* words, std::size_t at) {
    std::size_t i = at / 64;
    Word w = ~words[i] & (~Word{0} >> (63 - at % 64));
    while (w == 0) {
        if (i == 0) return 0;
        w = ~words[--i];
    }
    return i * 64 + 64 - static_cast<std::size_t>(std::countl_zero(w));
}

/// Sets the bits first to last, both inclusive.
inline void set(Word* words, std::size_t first, std::size_t last) {
    const Word head = ~Word{0} << (first % 64), tail = ~Word{0} >> (63 - last % 64);
    if (first / 64 == last / 64) {
        words[first / 64] |= head & tail;
        return;
    }
    words[first / 64] |= head;
    for (std::size_t i = first / 64 + 1; i < last / 64; ++i)
        words[i] = ~Word{0};
    words[last / 64] |= tail;
}

} // namespace Bits

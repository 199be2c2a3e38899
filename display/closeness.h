#pragma once

#include "common/line.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Verdicts on any number of texts against one of them, the leader: EQUAL, SIMILAR when five times
/// their edit distance is less than the longer one's length, else DIFFERENT. DIFFERENT without a
/// comparison, too, where more than 8,192 bytes of the longer text are left between what both begin
/// and what both end with.
///
/// Made once and given one leader after the other, since it keeps tables. The leader is borrowed.
class Closeness {
  public:
    /// Bytes between common beginning and common end that are still compared.
    static constexpr std::size_t mostCompared = 8192;

    void lead(std::string_view text);
    Line::State compare(std::string_view other);

  private:
    using Word = std::uint64_t;
    // A distance up to this one is found within a band of one word, which moves down the diagonal.
    static constexpr std::size_t widest = 31;
    static constexpr std::size_t longest = 5 * (widest + 1); // bytes, of texts that can be so near
    static constexpr std::size_t wordsEach = longest / 64 + 3;

    std::string_view leader;
    bool tabled = false;    // the table is that of the leader
    std::string tabledText; // what the table holds
    // For each byte, a bit for each place where the leader has it; a word without any before them.
    std::array<std::array<Word, wordsEach>, 256> places{};

    void fillTable();
    Word match(unsigned char byte, std::ptrdiff_t from) const;
    bool isWithin(std::size_t from, std::size_t rows, std::string_view columns, std::size_t most);
};

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// The places of a sequence, each with the texts that stand there; texts are numbers.
struct TextPlaces {
    std::vector<std::uint32_t> texts;
    /// Where in `texts` the texts of each place end.
    std::vector<std::size_t> ends;

    std::size_t size() const { return ends.size(); }
    bool holds(std::size_t place, std::uint32_t text) const;
};

/// A line of a sequence, and the place that it belongs to.
struct CommonLine {
    std::size_t line;
    std::size_t place;
};

/// The longest common subsequence of lines and places, ascending in both: a line goes with a place
/// where its text stands. (E. Myers, An O(ND) Difference Algorithm and Its Variations, 1986.)
///
/// Work and memory are bounded: where the two differ too much, what was common up to there is given
/// back.
std::vector<CommonLine> commonLines(std::span<const std::uint32_t> lines, const TextPlaces& places);

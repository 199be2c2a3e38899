#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

/// Finds entries of its owner's arrays by their hashes: a table of their indexes, open addressed.
/// Owns no entry.
class IndexTable {
  public:
    static constexpr std::uint32_t none = ~std::uint32_t{0};

    /// The index with this hash for which `same(index)` holds; `none` when there is none.
    template <class Same>
    std::uint32_t find(std::uint64_t hash, Same same) const {
        if (cells.empty()) return none;
        for (std::size_t at = spread(hash);; at = (at + 1) & (cells.size() - 1)) {
            const std::uint32_t index = cells[at];
            if (index == none || same(index)) return index;
        }
    }
    /// Adds an index that is not there; `hashOf(index)` gives the hash of each.
    template <class HashOf>
    void insert(std::uint64_t hash, std::uint32_t index, HashOf hashOf) {
        if (2 * (count + 1) > cells.size()) {
            grow(hashOf);
        }
        put(hash, index);
        ++count;
    }
    void clear() {
        cells = {};
        count = 0;
    }
    std::size_t bytes() const { return cells.capacity() * sizeof(std::uint32_t); }

    /// The hash of a pair.
    static std::uint64_t hashOf(std::uint32_t a, std::uint32_t b) {
        return (std::uint64_t{a} << 32 | b) * 0x9E3779B97F4A7C15;
    }

  private:
    std::vector<std::uint32_t> cells;
    std::size_t count = 0;

    std::size_t spread(std::uint64_t hash) const {
        return static_cast<std::size_t>((hash ^ hash >> 32) * 0xFF51AFD7ED558CCD >> 20) &
               (cells.size() - 1);
    }
    // In the order of the entries, which lie in memory so.
    template <class HashOf>
    void grow(HashOf hashOf) {
        std::uint32_t most = 0;
        for (const std::uint32_t each : cells)
            if (each != none) most = std::max(most, each);
        std::vector<bool> held(most + std::size_t{1});
        for (const std::uint32_t each : cells)
            if (each != none) held[each] = true;
        cells.assign(cells.empty() ? 16 : 2 * cells.size(), none);
        for (std::uint32_t each = 0; count > 0 && each <= most; ++each)
            if (held[each]) put(hashOf(each), each);
    }
    void put(std::uint64_t hash, std::uint32_t index) {
        std::size_t at = spread(hash);
        while (cells[at] != none)
            at = (at + 1) & (cells.size() - 1);
        cells[at] = index;
    }
};

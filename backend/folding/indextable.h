#pragma once

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
        const std::uint32_t tag = tagOf(hash);
        for (std::size_t at = spread(tag);; at = (at + 1) & (cells.size() - 1)) {
            const Cell& cell = cells[at];
            if (cell.index == none || (cell.tag == tag && same(cell.index))) return cell.index;
        }
    }
    /// Adds an index that is not there.
    void insert(std::uint64_t hash, std::uint32_t index) {
        if (2 * (count + 1) > cells.size()) grow();
        put({index, tagOf(hash)});
        ++count;
    }
    void clear() {
        cells = {};
        count = 0;
    }
    /// The hash of a pair.
    static std::uint64_t hashOf(std::uint32_t a, std::uint32_t b) {
        return (std::uint64_t{a} << 32 | b) * 0x9E3779B97F4A7C15;
    }

  private:
    // The tag, of the entry's hash, spares most looks at entries: these are far apart in memory.
    struct Cell {
        std::uint32_t index = none;
        std::uint32_t tag = 0;
    };
    std::vector<Cell> cells;
    std::size_t count = 0;

    static std::uint32_t tagOf(std::uint64_t hash) {
        return static_cast<std::uint32_t>((hash ^ hash >> 32) * 0xFF51AFD7ED558CCD >> 20);
    }
    std::size_t spread(std::uint32_t tag) const { return tag & (cells.size() - 1); }
    void grow() {
        std::vector<Cell> before(cells.empty() ? 16 : 2 * cells.size());
        before.swap(cells);
        for (const Cell& cell : before)
            if (cell.index != none) put(cell);
    }
    void put(const Cell& cell) {
        std::size_t at = spread(cell.tag);
        while (cells[at].index != none)
            at = (at + 1) & (cells.size() - 1);
        cells[at] = cell;
    }
};

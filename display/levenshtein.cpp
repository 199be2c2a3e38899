#include "display/levenshtein.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

namespace {

using Word = std::uint64_t;

// 64 rows of one column: where the distance steps up (plus) and down (minus) from row to row.
struct Block {
    Word plus = ~Word{0};
    Word minus = 0;
};

// Moves a block one column on. `equal` has a bit for each row whose byte equals the column's; `in`
// is the horizontal step (-1, 0, 1) above the block, the result is the step at the row `last`.
int advance(Block& block, Word equal, int in, Word last) {
    const Word vertical = equal | block.minus;
    if (in < 0) equal |= 1;
    const Word diagonal = (((equal & block.plus) + block.plus) ^ block.plus) | equal;
    Word up = block.minus | ~(diagonal | block.plus);
    Word down = block.plus & diagonal;
    const int out = (up & last) ? 1 : (down & last) ? -1 : 0;
    up <<= 1;
    down <<= 1;
    if (in < 0)
        down |= 1;
    else if (in > 0)
        up |= 1;
    block.plus = down | ~(vertical | up);
    block.minus = up & vertical;
    return out;
}

int shortDistance(std::string_view rows, std::string_view columns) {
    std::array<Word, 256> equal{};
    for (std::size_t i = 0; i < rows.size(); ++i)
        equal[static_cast<unsigned char>(rows[i])] |= Word{1} << i;
    const Word last = Word{1} << (rows.size() - 1);
    Block block;
    int distance = static_cast<int>(rows.size());
    for (char c : columns)
        distance += advance(block, equal[static_cast<unsigned char>(c)], 1, last);
    return distance;
}

int longDistance(std::string_view rows, std::string_view columns) {
    const std::size_t count = (rows.size() + 63) / 64;
    std::vector<Word> equal(256 * count);
    for (std::size_t i = 0; i < rows.size(); ++i)
        equal[static_cast<unsigned char>(rows[i]) * count + i / 64] |= Word{1} << (i % 64);
    constexpr Word top = Word{1} << 63;
    const Word last = Word{1} << ((rows.size() - 1) % 64);
    std::vector<Block> blocks(count);
    int distance = static_cast<int>(rows.size());
    for (char c : columns) {
        const Word* row = equal.data() + static_cast<unsigned char>(c) * count;
        int step = 1;
        for (std::size_t b = 0; b + 1 < count; ++b)
            step = advance(blocks[b], row[b], step, top);
        distance += advance(blocks[count - 1], row[count - 1], step, last);
    }
    return distance;
}

} // namespace

int Levenshtein::Distance(const std::string& s1, const std::string& s2) {
    std::string_view rows = s1;
    std::string_view columns = s2;
    // A common head or tail costs nothing in some cheapest alignment.
    while (!rows.empty() && !columns.empty() && rows.front() == columns.front()) {
        rows.remove_prefix(1);
        columns.remove_prefix(1);
    }
    while (!rows.empty() && !columns.empty() && rows.back() == columns.back()) {
        rows.remove_suffix(1);
        columns.remove_suffix(1);
    }
    if (rows.size() > columns.size()) std::swap(rows, columns);
    if (rows.empty()) return static_cast<int>(columns.size());
    return rows.size() <= 64 ? shortDistance(rows, columns) : longDistance(rows, columns);
}

int Levenshtein::Minimum(int a, int b, int c) { return std::min({a, b, c}); }

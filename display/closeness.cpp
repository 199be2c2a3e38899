#include "display/closeness.h"

#include "common/bytes/commonends.h"
#include "display/levenshtein.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <iterator>
#include <string>

namespace {

// How many bytes differ, of two texts of the same length; stops counting above `most`.
std::size_t unlikeBytes(std::string_view a, std::string_view b, std::size_t most) {
    constexpr std::uint64_t ones = 0x0101010101010101, low = ones * 0x7f;
    const auto unlike = [&](std::size_t at) {
        return CommonEnds::eightAt(a.data() + at) ^ CommonEnds::eightAt(b.data() + at);
    };
    // By the top bit of each byte that is not zero.
    const auto notZero = [](std::uint64_t word) {
        return (((((word & low) + low) | word) & ~low) >> 7) * ones >> 56;
    };
    std::size_t count = 0, i = 0;
    for (; i + 8 <= a.size() && count <= most; i += 8)
        count += notZero(unlike(i));
    if constexpr (std::endian::native == std::endian::little) {
        // The last eight, without those that were counted.
        if (i < a.size() && a.size() >= 8 && count <= most)
            return count + notZero(unlike(a.size() - 8) >> (8 * (8 - (a.size() - i))));
    }
    for (; i < a.size() && count <= most; ++i)
        count += a[i] != b[i];
    return count;
}

// Distances up to this one are looked for along diagonals.
constexpr std::size_t mostAlongDiagonals = 255;

// Whether the distance is at most `most`: for each number of edits and each diagonal, how far down
// it leads (E. Ukkonen, "Algorithms for approximate string matching", Information and Control 64,
// 1985). Takes time by the square of the distance, and not by the lengths.
bool isWithinEdits(std::string_view rows, std::string_view columns, std::size_t most) {
    using Row = std::ptrdiff_t;
    const Row n = std::ssize(rows), m = std::ssize(columns), limit = static_cast<Row>(most);
    constexpr Row unreachable = -2;
    std::array<Row, 2 * mostAlongDiagonals + 5> furthest;
    Row* const at = furthest.data() + mostAlongDiagonals + 2; // by diagonal: column - row
    std::fill(at - limit - 2, at + limit + 3, unreachable);
    for (Row edits = 0; edits <= limit; ++edits) {
        // Those from which the last diagonal is still near enough.
        const Row from = std::max(-edits, m - n - (limit - edits));
        const Row to = std::min(edits, m - n + (limit - edits));
        Row before = at[from - 1]; // with an edit less, as is at[k] until it is set
        for (Row k = from; k <= to; ++k) {
            Row row = edits == 0 ? 0 : std::max({at[k] + 1, before, at[k + 1] + 1});
            before = at[k];
            row = std::min({row, n, m - k});
            while (row < n && row + k < m &&
                   rows[static_cast<std::size_t>(row)] ==
                       columns[static_cast<std::size_t>(row + k)])
                ++row;
            at[k] = row;
        }
        if (from <= m - n && m - n <= to && at[m - n] == n) return true;
    }
    return false;
}

} // namespace

void Closeness::lead(std::string_view text) {
    if (tabled) {
        for (const char c : tabledText)
            places[static_cast<unsigned char>(c)].fill(0);
    }
    tabled = false;
    leader = text;
}

void Closeness::fillTable() {
    tabledText = leader.substr(0, longest);
    for (std::size_t i = 0; i < tabledText.size(); ++i)
        places[static_cast<unsigned char>(tabledText[i])][i / 64 + 1] |= Word{1} << (i % 64);
    tabled = true;
}

// 64 places of the leader, from one on that may lie up to 64 before its first.
Closeness::Word Closeness::match(unsigned char byte, std::ptrdiff_t from) const {
    const std::size_t at = static_cast<std::size_t>(from + 64);
    const auto& row = places[byte];
    const Word low = row[at / 64] >> (at % 64);
    return at % 64 == 0 ? low : low | row[at / 64 + 1] << (64 - at % 64);
}

// Whether the distance between a part of the leader (its rows) and a text (the columns) is at most
// `most`. A word holds the band of rows around the diagonal and moves down with it, one row a
// column (H. Hyyrö, "A bit-vector algorithm for computing Levenshtein and Damerau edit distances",
// Nordic Journal of Computing 10, 2003). Requires most < rows <= columns + most, and columns <=
// rows + most.
bool Closeness::isWithin(std::size_t from, std::size_t rows, std::string_view columns,
                         std::size_t most) {
    if (!tabled) fillTable();
    if (from + rows <= 64) {
        // All rows in one word, which stands still.
        const Word last = Word{1} << (rows - 1);
        Word plus = ~Word{0}, minus = 0;
        std::size_t distance = rows;
        for (std::size_t left = columns.size(); left > 0; --left) {
            const unsigned char byte = static_cast<unsigned char>(columns[columns.size() - left]);
            const Word equal = places[byte][1] >> from;
            const Word down = (((equal & plus) + plus) ^ plus) | equal | minus;
            const Word right = minus | ~(down | plus);
            const Word back = down & plus;
            distance += (right & last) != 0;
            distance -= (back & last) != 0;
            if (distance >= most + left) return false;
            if (distance + left <= most + 1) return true;
            plus = back << 1 | ~(down | (right << 1 | 1));
            minus = down & (right << 1 | 1);
        }
        return distance <= most;
    }
    const std::ptrdiff_t first = static_cast<std::ptrdiff_t>(from);
    constexpr Word diagonal = Word{1} << 63;
    Word plus = ~Word{0} << (63 - most), minus = 0;
    // The band's first row, counted from the part's; those above the part match nothing.
    std::ptrdiff_t top = static_cast<std::ptrdiff_t>(most) - 63;
    std::size_t distance = most;
    // What the rest of the last row can take back at most.
    const std::size_t hopeless = most + columns.size() - (rows - most);
    const auto step = [&](char c) {
        Word equal = match(static_cast<unsigned char>(c), first + top);
        if (top < 0) equal &= ~Word{0} << -top;
        return (((equal & plus) + plus) ^ plus) | equal | minus;
    };
    std::size_t column = 0;
    for (; column < rows - most; ++column, ++top) {
        const Word down = step(columns[column]);
        const Word right = minus | ~(down | plus);
        const Word left = down & plus;
        distance += (down & diagonal) == 0;
        if (distance > hopeless) return false;
        plus = left | ~(down >> 1 | right);
        minus = down >> 1 & right;
    }
    for (Word last = diagonal >> 1; column < columns.size(); ++column, ++top, last >>= 1) {
        const Word down = step(columns[column]);
        const Word right = minus | ~(down | plus);
        const Word left = down & plus;
        distance += (right & last) != 0;
        distance -= (left & last) != 0;
        if (distance > most + (columns.size() - column - 1)) return false;
        plus = left | ~(down >> 1 | right);
        minus = down >> 1 & right;
    }
    return distance <= most;
}

Line::State Closeness::compare(std::string_view other) {
    const std::size_t longer = std::max(leader.size(), other.size());
    const std::size_t shorter = std::min(leader.size(), other.size());
    const std::size_t head = CommonEnds::head(leader, other);
    if (head == longer) return Line::EQUAL;
    // The largest distance that is less than a fifth.
    const std::size_t most = (longer - 1) / 5;
    if (longer - shorter > most) return Line::DIFFERENT;
    const std::size_t tail = CommonEnds::tail(leader.substr(head), other.substr(head));
    const std::size_t rows = leader.size() - head - tail;
    const std::string_view columns = other.substr(head, other.size() - head - tail);
    const std::size_t left = std::max(rows, columns.size());
    if (left > mostCompared) return Line::DIFFERENT;
    // Replacing all that is left costs that much.
    if (left <= most) return Line::SIMILAR;
    if (most == 0 || rows == 0 || columns.empty()) return Line::DIFFERENT;
    const std::string_view mine = leader.substr(head, rows);
    if (rows == columns.size()) {
        // With what is equal around it, so that whole words can be read.
        const std::size_t begin = std::min(head, longer - std::min<std::size_t>(longer, 8));
        const std::size_t number = std::max<std::size_t>(head + rows - begin, 8);
        if (unlikeBytes(leader.substr(begin, number), other.substr(begin, number), most) <= most)
            return Line::SIMILAR;
    }
    if (most <= widest && most < rows)
        return isWithin(head, rows, columns, most) ? Line::SIMILAR : Line::DIFFERENT;
    if (most <= mostAlongDiagonals)
        return isWithinEdits(mine, columns, most) ? Line::SIMILAR : Line::DIFFERENT;
    const int distance = Levenshtein::Distance(std::string(mine), std::string(columns));
    return static_cast<std::size_t>(distance) <= most ? Line::SIMILAR : Line::DIFFERENT;
}

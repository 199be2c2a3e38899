#include "display/closeness.h"

#include "common/bytes/commonends.h"
#include "display/levenshtein.h"

#include <algorithm>
#include <string>

namespace {

// How many bytes differ, of two texts of the same length; stops counting above `most`.
std::size_t unlikeBytes(std::string_view a, std::string_view b, std::size_t most) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < a.size() && count <= most; ++i)
        count += a[i] != b[i];
    return count;
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
    if (rows == columns.size() && unlikeBytes(mine, columns, most) <= most) return Line::SIMILAR;
    if (most <= widest && most < rows)
        return isWithin(head, rows, columns, most) ? Line::SIMILAR : Line::DIFFERENT;
    const int distance = Levenshtein::Distance(std::string(mine), std::string(columns));
    return static_cast<std::size_t>(distance) <= most ? Line::SIMILAR : Line::DIFFERENT;
}

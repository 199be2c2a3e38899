#include "common/clientset.h"

#include "common/bytes/bits.h"
#include "common/bytes/decimal.h"

#include <algorithm>
#include <cassert>

namespace {

using Wide = std::int64_t; // ends of runs plus one, without overflow

std::size_t width(const ClientSet::Range& r) {
    return static_cast<std::size_t>(static_cast<Wide>(r.last) - r.first + 1);
}

// Appends a run to an ascending list, joining it with the last one when they touch.
void join(std::vector<ClientSet::Range>& ranges, const ClientSet::Range& r) {
    if (!ranges.empty() && static_cast<Wide>(ranges.back().last) + 1 >= r.first)
        ranges.back().last = std::max(ranges.back().last, r.last);
    else
        ranges.push_back(r);
}

std::size_t countRuns(const std::vector<std::uint64_t>& bits) {
    std::size_t runs = 0;
    std::uint64_t carry = 0;
    for (const std::uint64_t word : bits) {
        const std::uint64_t starts = word & ~(word << 1 | carry);
        runs += Bits::count(&starts, 1);
        carry = word >> 63;
    }
    return runs;
}

// Words of a bitmap for the ids from `low` to `high`.
std::size_t wordsFor(Wide low, Wide high) {
    return static_cast<std::size_t>((high >> 6) - (low >> 6) + 1);
}

// Ranges are asked whether bits are smaller from this number on.
constexpr std::size_t manyRanges = 8;
constexpr std::size_t maxSparse = 4096; // words of a bitmap with few ids

} // namespace

ClientSet::ClientSet(std::initializer_list<int> ids) {
    for (int id : ids)
        insert(id);
}

ClientSet::ClientSet(std::vector<Range> ranges) {
    std::sort(ranges.begin(), ranges.end(),
              [](const Range& a, const Range& b) { return a.first < b.first; });
    for (const Range& r : ranges)
        insertRange(r.first, r.last);
}

ClientSet::ClientSet(const ClientSet& other)
    : lowest(other.lowest),
      highest(other.highest),
      body(other.body ? std::make_unique<Body>(*other.body) : nullptr) {}

ClientSet::ClientSet(ClientSet&& other) noexcept
    : lowest(other.lowest), highest(other.highest), body(std::move(other.body)) {
    other.clear();
}

ClientSet& ClientSet::operator=(const ClientSet& other) {
    if (this != &other) *this = ClientSet(other);
    return *this;
}

ClientSet& ClientSet::operator=(ClientSet&& other) noexcept {
    if (this == &other) return *this;
    lowest = other.lowest;
    highest = other.highest;
    body = std::move(other.body);
    other.clear();
    return *this;
}

// The two forms of the body.

ClientSet::Body& ClientSet::manyRuns() {
    if (!body) {
        body = std::make_unique<Body>();
        body->ranges.push_back({lowest, highest});
        body->count = width(body->ranges.front());
    }
    return *body;
}

// Gives the body up when it holds one run or none.
void ClientSet::settle() {
    if (body && body->count == width({lowest, highest})) body.reset();
}

void ClientSet::takeBits() {
    body->base = static_cast<Wide>(lowest) & ~Wide{63};
    body->bits.assign(wordsFor(lowest, highest), 0);
    for (const Range& r : body->ranges)
        Bits::set(body->bits.data(), static_cast<std::size_t>(r.first - body->base),
                  static_cast<std::size_t>(r.last - body->base));
    body->ranges = {};
}

// Called where the ranges are about to grow: their number doubles between two calls.
void ClientSet::useBitsIfSmaller() {
    if (body->ranges.size() >= manyRanges && body->ranges.size() > wordsFor(lowest, highest))
        takeBits();
}

void ClientSet::assignRuns(std::vector<Range> runs) {
    clear();
    if (runs.empty()) return;
    lowest = runs.front().first;
    highest = runs.back().last;
    if (runs.size() == 1) return;
    body = std::make_unique<Body>();
    for (const Range& r : runs)
        body->count += width(r);
    body->ranges = std::move(runs);
    useBitsIfSmaller();
    if (body->bits.empty() && body->ranges.capacity() > 2 * body->ranges.size())
        body->ranges.shrink_to_fit();
}

// Makes room for these ids in the bitmap; goes over to ranges when that takes less memory by far.
void ClientSet::growBits(int first, int last) {
    const int low = std::min(lowest, first), high = std::max(highest, last);
    const Wide base = std::min(body->base, static_cast<Wide>(low) & ~Wide{63});
    const std::size_t before = static_cast<std::size_t>(body->base - base) / 64;
    const std::size_t words =
        std::max(before + body->bits.size(), static_cast<std::size_t>((high - base) / 64 + 1));
    if (words == body->bits.size()) return;
    if ((words > maxSparse && words > 4 * body->count) ||
        (words > 2 * body->bits.size() + manyRanges && countRuns(body->bits) < words / 2)) {
        body->ranges = ranges();
        body->bits = {};
        return;
    }
    body->bits.insert(body->bits.begin(), before, 0);
    body->bits.resize(words);
    body->base = base;
}

void ClientSet::insertIntoBits(const Range& run) {
    const std::size_t first = static_cast<std::size_t>(run.first - body->base);
    const std::size_t last = static_cast<std::size_t>(run.last - body->base);
    Word* words = body->bits.data();
    if (first == last) {
        const Word bit = Word{1} << (first % 64);
        body->count += (words[first / 64] & bit) == 0;
        words[first / 64] |= bit;
    } else {
        const std::size_t number = last / 64 - first / 64 + 1;
        body->count -= Bits::count(words + first / 64, number);
        Bits::set(words, first, last);
        body->count += Bits::count(words + first / 64, number);
    }
    lowest = std::min(lowest, run.first);
    highest = std::max(highest, run.last);
    settle();
}

// Adding.

// Adds a run behind the last one.
void ClientSet::append(const Range& run) {
    if (empty()) {
        lowest = run.first;
        highest = run.last;
        return;
    }
    const bool touches = static_cast<Wide>(highest) + 1 == run.first;
    if (!body && touches) {
        highest = run.last;
        return;
    }
    Body& many = manyRuns();
    if (!many.bits.empty()) growBits(run.first, run.last);
    if (!many.bits.empty()) {
        insertIntoBits(run);
        return;
    }
    many.count += width(run);
    highest = run.last;
    if (touches) {
        many.ranges.back().last = run.last;
        return;
    }
    const bool full = many.ranges.size() == many.ranges.capacity();
    many.ranges.push_back(run);
    if (full) useBitsIfSmaller();
}

bool ClientSet::insert(int id) {
    if (empty() || id > highest) {
        append({id, id});
        return true;
    }
    if (contains(id)) return false;
    insertRange(id, id);
    return true;
}

void ClientSet::insertRange(int first, int last) {
    assert(first <= last);
    if (empty() || first > highest) {
        append({first, last});
        return;
    }
    if (hasBits()) growBits(first, last);
    if (hasBits()) {
        insertIntoBits({first, last});
        return;
    }
    Range run{first, last};
    const auto meets = [&run](const Range& r) {
        return static_cast<Wide>(r.first) <= static_cast<Wide>(run.last) + 1 &&
               static_cast<Wide>(run.first) <= static_cast<Wide>(r.last) + 1;
    };
    if (!body && meets({lowest, highest})) {
        lowest = std::min(lowest, first);
        highest = std::max(highest, last);
        return;
    }
    Body& many = manyRuns();
    auto from = many.ranges.begin() + (lowerRange(first) - many.ranges.cbegin());
    if (from != many.ranges.begin() && meets(*std::prev(from))) --from;
    auto to = from;
    for (; to != many.ranges.end() && meets(*to); ++to) {
        run.first = std::min(run.first, to->first);
        run.last = std::max(run.last, to->last);
        many.count -= width(*to);
    }
    many.count += width(run);
    lowest = std::min(lowest, run.first);
    highest = std::max(highest, run.last);
    if (from != to) {
        *from = run;
        many.ranges.erase(std::next(from), to);
        settle();
        return;
    }
    const bool full = many.ranges.size() == many.ranges.capacity();
    many.ranges.insert(from, run);
    if (full) useBitsIfSmaller();
}

void ClientSet::uniteBits(const Body& other) {
    const std::size_t offset = static_cast<std::size_t>(other.base - body->base) / 64;
    Word* words = body->bits.data() + offset;
    for (std::size_t i = 0; i < other.bits.size(); ++i)
        words[i] |= other.bits[i];
    body->count = Bits::count(body->bits.data(), body->bits.size());
    const std::size_t span = width({lowest, highest});
    if (body->count == span) {
        body.reset();
    } else if (body->count / 7 * 8 > span && countRuns(body->bits) < body->bits.size() / 2) {
        body->ranges = ranges();
        body->bits = {};
    }
}

void ClientSet::insert(const ClientSet& other) {
    if (other.empty() || this == &other) return;
    if (empty()) {
        *this = other;
        return;
    }
    if (!other.body) {
        insertRange(other.lowest, other.highest);
        return;
    }
    if (!body && lowest <= other.lowest && highest >= other.highest) return;
    if (other.hasBits() && !hasBits()) {
        ClientSet united(other);
        united.insert(*this);
        *this = std::move(united);
        return;
    }
    if (hasBits()) {
        // Both ends of the other set fit first; ranges may come out of that.
        if (other.hasBits()) {
            const Wide end = other.body->base + static_cast<Wide>(other.body->bits.size()) * 64 - 1;
            growBits(static_cast<int>(std::max<Wide>(other.body->base, INT32_MIN)),
                     static_cast<int>(std::min<Wide>(end, INT32_MAX)));
        } else {
            growBits(other.lowest, other.highest);
        }
        if (hasBits() && other.hasBits()) {
            lowest = std::min(lowest, other.lowest);
            highest = std::max(highest, other.highest);
            uniteBits(*other.body);
            return;
        }
        if (hasBits()) {
            for (const Range& r : other.body->ranges)
                insertRange(r.first, r.last);
            return;
        }
    }
    if (!other.hasBits() && other.body->ranges.size() <= 4) {
        for (const Range& r : other.body->ranges)
            insertRange(r.first, r.last);
        return;
    }
    std::vector<Range> merged;
    auto a = runs().begin(), b = other.runs().begin();
    const RunIterator none;
    while (a != none || b != none) {
        const bool takeA = b == none || (a != none && a->first <= b->first);
        RunIterator& next = takeA ? a : b;
        join(merged, *next);
        ++next;
    }
    assignRuns(std::move(merged));
}

// Removing.

bool ClientSet::erase(int id) {
    if (!contains(id)) return false;
    if (lowest == highest) {
        clear();
        return true;
    }
    if (!body && (id == lowest || id == highest)) {
        id == lowest ? ++lowest : --highest;
        return true;
    }
    Body& many = manyRuns();
    --many.count;
    if (!many.bits.empty()) {
        const std::size_t at = static_cast<std::size_t>(id - many.base);
        many.bits[at / 64] &= ~(Word{1} << (at % 64));
        if (id == lowest) lowest = runFrom(id).first;
        if (id == highest) {
            std::size_t last = at / 64;
            while (many.bits[last] == 0)
                --last;
            highest = static_cast<int>(many.base + static_cast<Wide>(last) * 64 + 63 -
                                       std::countl_zero(many.bits[last]));
        }
        settle();
        return true;
    }
    const auto at = many.ranges.begin() + (lowerRange(id) - many.ranges.cbegin());
    const Range whole = *at;
    if (whole.first == whole.last) {
        many.ranges.erase(at);
    } else if (id == whole.first) {
        at->first = id + 1;
    } else if (id == whole.last) {
        at->last = id - 1;
    } else {
        at->last = id - 1;
        const bool full = many.ranges.size() == many.ranges.capacity();
        many.ranges.insert(std::next(at), {id + 1, whole.last});
        if (full) useBitsIfSmaller();
        return true;
    }
    lowest = many.ranges.front().first;
    highest = many.ranges.back().last;
    settle();
    return true;
}

void ClientSet::erase(const ClientSet& other) {
    if (empty() || other.empty() || other.lowest > highest || other.highest < lowest) return;
    std::vector<Range> rest;
    RunIterator b = other.seek(lowest);
    const RunIterator none;
    for (Range a : runs()) {
        bool used = false;
        while (b != none && b->last < a.first)
            ++b;
        for (; b != none && b->first <= a.last; ++b) {
            if (b->first > a.first) rest.push_back({a.first, b->first - 1});
            if (b->last >= a.last) {
                used = true;
                break;
            }
            a.first = b->last + 1;
        }
        if (!used) rest.push_back(a);
    }
    assignRuns(std::move(rest));
}

ClientSet ClientSet::intersection(const ClientSet& other) const {
    std::vector<Range> both;
    if (empty() || other.empty()) return {};
    RunIterator a = seek(other.lowest), b = other.seek(lowest);
    const RunIterator none;
    while (a != none && b != none) {
        const int first = std::max(a->first, b->first);
        const int last = std::min(a->last, b->last);
        if (first <= last) both.push_back({first, last});
        if (a->last < b->last)
            ++a;
        else
            ++b;
    }
    ClientSet result;
    result.assignRuns(std::move(both));
    return result;
}

// Text, and comparing.

std::string ClientSet::str() const {
    std::string text;
    appendTo(text);
    return text;
}

void ClientSet::appendTo(std::string& text) const {
    if (empty()) return;
    char piece[2048];
    char* end = piece;
    Decimal::Series numbers;
    eachRun(lowest, highest, [&](int first, int last) {
        end = numbers.write(end, first);
        if (last != first) {
            *end++ = ':';
            end = numbers.write(end, last);
        }
        *end++ = ' ';
        if (end + 3 * Decimal::Series::size > piece + sizeof piece) {
            text.append(piece, static_cast<std::size_t>(end - piece));
            end = piece;
        }
    });
    text.append(piece, static_cast<std::size_t>(end - piece));
}

bool ClientSet::operator==(const ClientSet& other) const {
    if (lowest != other.lowest || highest != other.highest || size() != other.size()) return false;
    if (!body || !other.body) return !body && !other.body;
    auto a = runs().begin(), b = other.runs().begin();
    const RunIterator none;
    for (; a != none && b != none; ++a, ++b) {
        if (*a != *b) return false;
    }
    return a == b;
}

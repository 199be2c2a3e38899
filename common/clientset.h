#pragma once

#include "common/bytes/bits.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

/// An ordered set of client ids.
///
/// Jobs have up to 131,072 tasks, most lines come from one client, from all, or from long runs of
/// neighbours, and some from clients spread at random. An empty set and a single run take the 16
/// bytes of the object; several runs are held as ranges as long as these take less memory than a
/// bit for each id between the smallest and the largest, else as such a bitmap. Appending in
/// ascending order is O(1), a union is linear in the ranges of both sets or in the words of both
/// bitmaps. A value type; not synchronised.
class ClientSet {
  public:
    /// A run of ids, both ends inclusive, first <= last.
    struct Range {
        int first;
        int last;
        bool operator==(const Range&) const = default;
    };

    /// What the library asks of an iterator.
    template <class Value, class Reference>
    struct Forward {
        using iterator_category = std::forward_iterator_tag;
        using value_type = Value;
        using difference_type = std::ptrdiff_t;
        using pointer = const Value*;
        using reference = Reference;
    };
    /// Walks the runs, ascending; they neither overlap nor touch. Whatever changes the set ends it.
    class RunIterator : public Forward<Range, const Range&> {
      public:
        RunIterator() = default;
        const Range& operator*() const { return run; }
        const Range* operator->() const { return &run; }
        RunIterator& operator++();
        RunIterator operator++(int) {
            RunIterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const RunIterator& other) const {
            return set == other.set && (!set || run == other.run);
        }

      private:
        friend class ClientSet;
        const ClientSet* set = nullptr; // null behind the last run
        std::size_t index = 0;          // of the run, where ranges are held
        Range run{0, -1};
    };
    /// The runs of a set that must live as long as it is walked.
    struct Runs {
        const ClientSet* set;
        RunIterator begin() const;
        RunIterator end() const { return {}; }
    };

    /// Walks the ids one by one, ascending.
    class const_iterator : public Forward<int, int> {
      public:
        const_iterator() = default;
        int operator*() const { return id; }
        const_iterator& operator++() {
            if (id < at->last)
                ++id;
            else
                enter(++at);
            return *this;
        }
        const_iterator operator++(int) {
            const_iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const const_iterator& other) const {
            return at == other.at && id == other.id;
        }

      private:
        friend class ClientSet;
        RunIterator at;
        int id = 0;

        void enter(const RunIterator& run) { id = run == RunIterator() ? 0 : run->first; }
    };

    ClientSet() = default;
    ClientSet(std::initializer_list<int> ids);
    /// The union of any ranges, in any order, in O(n log n).
    explicit ClientSet(std::vector<Range> ranges);
    ClientSet(const ClientSet& other);
    ClientSet(ClientSet&& other) noexcept;
    ClientSet& operator=(const ClientSet& other);
    ClientSet& operator=(ClientSet&& other) noexcept;
    ~ClientSet() = default;

    /// Adds one id; false when it was there already.
    bool insert(int id);
    /// Adds first, first + 1, ..., last; requires first <= last.
    void insertRange(int first, int last);
    /// Adds every member of the other set.
    void insert(const ClientSet& other);
    /// Removes one id; false when it was not there.
    bool erase(int id);
    /// Removes every member of the other set.
    void erase(const ClientSet& other);
    /// The members that both sets hold.
    ClientSet intersection(const ClientSet& other) const;

    bool contains(int id) const;
    bool intersects(const ClientSet& other) const;
    std::size_t size() const;
    bool empty() const { return lowest > highest; }
    void clear() {
        lowest = 0;
        highest = -1;
        body.reset();
    }

    /// Smallest and largest id; the set must not be empty.
    int front() const { return lowest; }
    int back() const { return highest; }

    const_iterator begin() const;
    const_iterator end() const { return {}; }
    Runs runs() const { return {this}; }
    /// Calls each(first, last) for every run of the ids from `from` to `to`, both inclusive.
    template <class Each>
    void eachRun(int from, int to, Each each) const;
    /// Appends ids that ascend, as many of `number` as fit a bitmap that the set already holds;
    /// how many that were. idAt(i) is the i-th.
    template <class IdAt>
    std::size_t appendToBits(std::size_t number, IdAt idAt);
    /// The runs, copied; runs() walks them where they are.
    std::vector<Range> ranges() const;
    /// The smallest id that is not less than this one; back() must not be.
    int firstFrom(int id) const;
    /// The run that holds the id or, when none does, the first behind it; end of runs() if there is
    /// no such run.
    RunIterator seek(int id) const;

    /// The compact form shown to users: each run as "a" or "a:b", each followed by one blank
    /// ("0:3 5 7:9 "); empty for an empty set.
    std::string str() const;
    /// Appends that form.
    void appendTo(std::string& text) const;

    /// Bytes that the set takes besides the object itself.
    std::size_t heapSize() const;

    bool operator==(const ClientSet& other) const;

  private:
    using Word = std::uint64_t;

    // What a set of several runs holds: either ranges or, when bits is not empty, a bit for each id
    // from base on.
    struct Body {
        std::size_t count = 0;
        std::vector<Range> ranges;
        std::vector<Word> bits;
        std::int64_t base = 0; // a multiple of 64
    };

    int lowest = 0;
    int highest = -1;
    std::unique_ptr<Body> body; // null for an empty set and for a single run

    bool hasBits() const { return body && !body->bits.empty(); }
    Body& manyRuns();
    void append(const Range& run);
    void insertIntoBits(const Range& run);
    void growBits(int first, int last);
    void uniteBits(const Body& other);
    void takeBits();
    void useBitsIfSmaller();
    void settle();
    void assignRuns(std::vector<Range> runs);
    bool testBit(int id) const;
    Range runFrom(std::int64_t id) const;
    /// The first of the ranges that does not end before the id.
    std::vector<Range>::const_iterator lowerRange(int id) const {
        return std::lower_bound(body->ranges.begin(), body->ranges.end(), id,
                                [](const Range& r, int value) { return r.last < value; });
    }
};

// What is asked in inner loops.

inline bool ClientSet::testBit(int id) const {
    const std::size_t at = static_cast<std::size_t>(id - body->base);
    return (body->bits[at / 64] >> (at % 64) & 1) != 0;
}

// The first run of the bitmap at the id or behind it; {0, -1} when there is none.
inline ClientSet::Range ClientSet::runFrom(std::int64_t id) const {
    const std::size_t size = body->bits.size() * 64;
    const std::size_t from = id > body->base ? static_cast<std::size_t>(id - body->base) : 0;
    const std::size_t first = Bits::next(body->bits.data(), size, from);
    if (first == size) return {0, -1};
    const std::size_t end = Bits::nextClear(body->bits.data(), size, first);
    return {static_cast<int>(body->base + static_cast<std::int64_t>(first)),
            static_cast<int>(body->base + static_cast<std::int64_t>(end) - 1)};
}

inline bool ClientSet::contains(int id) const {
    if (id < lowest || id > highest) return false;
    if (!body) return true;
    if (!body->bits.empty()) return testBit(id);
    const auto at = lowerRange(id);
    return at->first <= id;
}

inline bool ClientSet::intersects(const ClientSet& other) const {
    if (empty() || other.empty()) return false;
    RunIterator a = seek(other.lowest), b = other.seek(lowest);
    const RunIterator none;
    while (a != none && b != none) {
        if (a->first <= b->last && b->first <= a->last) return true;
        if (a->last < b->last)
            ++a;
        else
            ++b;
    }
    return false;
}

inline std::size_t ClientSet::size() const {
    if (empty()) return 0;
    return body ? body->count
                : static_cast<std::size_t>(static_cast<std::int64_t>(highest) - lowest + 1);
}

inline std::size_t ClientSet::heapSize() const {
    if (!body) return 0;
    return sizeof(Body) + body->ranges.capacity() * sizeof(Range) +
           body->bits.capacity() * sizeof(Word);
}

inline ClientSet::RunIterator& ClientSet::RunIterator::operator++() {
    const Body* many = set->body.get();
    if (many && !many->bits.empty() && run.last < set->highest) {
        run = set->runFrom(static_cast<std::int64_t>(run.last) + 1);
    } else if (many && many->bits.empty() && ++index < many->ranges.size()) {
        run = many->ranges[index];
    } else {
        *this = {};
    }
    return *this;
}

inline ClientSet::RunIterator ClientSet::Runs::begin() const {
    return set->empty() ? RunIterator() : set->seek(set->lowest);
}

inline ClientSet::RunIterator ClientSet::seek(int id) const {
    RunIterator it;
    if (empty() || id > highest) return it;
    it.set = this;
    if (!body) {
        it.run = {lowest, highest};
    } else if (!body->bits.empty()) {
        const int first = std::max(id, lowest);
        it.run = runFrom(first);
        if (it.run.first == first)
            it.run.first = static_cast<int>(
                body->base + static_cast<std::int64_t>(Bits::beginning(
                                 body->bits.data(), static_cast<std::size_t>(first - body->base))));
    } else {
        const auto at = lowerRange(id);
        it.index = static_cast<std::size_t>(at - body->ranges.begin());
        it.run = *at;
    }
    return it;
}

inline int ClientSet::firstFrom(int id) const {
    if (id <= lowest) return lowest;
    if (!body) return id;
    if (body->bits.empty()) return std::max(id, lowerRange(id)->first);
    const std::size_t at = static_cast<std::size_t>(id - body->base);
    return static_cast<int>(body->base + static_cast<std::int64_t>(Bits::next(
                                             body->bits.data(), body->bits.size() * 64, at)));
}

inline ClientSet::const_iterator ClientSet::begin() const {
    const_iterator it;
    it.at = runs().begin();
    it.enter(it.at);
    return it;
}

inline std::vector<ClientSet::Range> ClientSet::ranges() const {
    return {runs().begin(), runs().end()};
}

template <class Each>
void ClientSet::eachRun(int from, int to, Each each) const {
    if (empty() || from > highest || to < lowest) return;
    from = from > lowest ? from : lowest;
    to = to < highest ? to : highest;
    if (!hasBits()) {
        for (RunIterator run = seek(from); run.set && run->first <= to; ++run)
            each(run->first > from ? run->first : from, run->last < to ? run->last : to);
        return;
    }
    const Word* words = body->bits.data();
    const std::size_t begin = static_cast<std::size_t>(from - body->base);
    const std::size_t end = static_cast<std::size_t>(to - body->base); // inclusive
    const auto idOf = [this](std::size_t bit) {
        return static_cast<int>(body->base + static_cast<std::int64_t>(bit));
    };
    bool open = false; // a run goes on from the word before
    std::size_t first = 0;
    for (std::size_t i = begin / 64; i <= end / 64; ++i) {
        Word w = words[i];
        if (i == begin / 64) w &= ~Word{0} << (begin % 64);
        if (i == end / 64) w &= ~Word{0} >> (63 - end % 64);
        if (open) {
            if (w == ~Word{0}) continue;
            const int length = std::countr_one(w);
            each(idOf(first), idOf(i * 64 + static_cast<std::size_t>(length) - 1));
            open = false;
            w &= w + 1;
        }
        while (w != 0) {
            const int start = std::countr_zero(w);
            const int length = std::countr_one(w >> start);
            first = i * 64 + static_cast<std::size_t>(start);
            if (start + length == 64) {
                open = true;
                break;
            }
            each(idOf(first), idOf(first + static_cast<std::size_t>(length) - 1));
            w &= w + (w & (~w + 1));
        }
    }
    if (open) each(idOf(first), to);
}

template <class IdAt>
std::size_t ClientSet::appendToBits(std::size_t number, IdAt idAt) {
    if (!hasBits() || number == 0) return 0;
    // Not more than what makes the bitmap twice as long where it is thinnest.
    if (number > body->bits.size()) number = body->bits.size();
    if (idAt(number - 1) <= highest) return 0;
    const int last = idAt(number - 1);
    growBits(last, last);
    if (!hasBits()) return 0;
    Word* words = body->bits.data();
    const std::int64_t base = body->base;
    int before = highest;
    std::size_t taken = 0;
    for (; taken < number; ++taken) {
        const int id = idAt(taken);
        if (id <= before || id > last) break;
        const std::size_t at = static_cast<std::size_t>(id - base);
        words[at / 64] |= Word{1} << (at % 64);
        before = id;
    }
    highest = before;
    body->count += taken;
    settle();
    return taken;
}

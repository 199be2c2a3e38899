#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

/// An ordered set of client ids, held as disjoint, non-adjacent ranges in ascending order.
///
/// Jobs have up to 100,000 tasks and most lines come from long runs of neighbours, so a set costs
/// memory by its runs, not by its members. Appending in ascending order is O(1), a union is linear
/// in the runs of both sets. A value type; not synchronised.
class ClientSet {
  public:
    /// A run of ids, both ends inclusive, first <= last.
    struct Range {
        int first;
        int last;
        bool operator==(const Range&) const = default;
    };

    /// Walks the ids one by one, ascending.
    class const_iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = int;
        using difference_type = std::ptrdiff_t;
        using pointer = const int*;
        using reference = int;

        const_iterator() = default;
        int operator*() const { return id; }
        const_iterator& operator++();
        const_iterator operator++(int) {
            const_iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const const_iterator& other) const = default;

      private:
        friend class ClientSet;
        const Range* range = nullptr;
        const Range* stop = nullptr;
        int id = 0;
    };

    ClientSet() = default;
    ClientSet(std::initializer_list<int> ids);
    /// The union of any ranges, in any order, in O(n log n).
    explicit ClientSet(std::vector<Range> ranges);

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
    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }
    void clear();

    /// Smallest and largest id; the set must not be empty.
    int front() const { return runs.front().first; }
    int back() const { return runs.back().last; }

    const_iterator begin() const;
    const_iterator end() const;
    const std::vector<Range>& ranges() const { return runs; }

    /// The compact form shown to users: each run as "a" or "a:b", each followed by one blank
    /// ("0:3 5 7:9 "); empty for an empty set.
    std::string str() const;

    bool operator==(const ClientSet& other) const { return runs == other.runs; }

  private:
    std::vector<Range> runs;
    std::size_t count = 0;

    void recount();
};

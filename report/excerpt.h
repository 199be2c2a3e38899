#pragma once

#include <cstddef>
#include <deque>
#include <utility>
#include <vector>

/// The first and the last of the items that are added, however many: a job that goes wrong may be
/// told of without end. A value.
template <class Item>
class Excerpt {
  public:
    static constexpr std::size_t kept = 100; // of the first, and of the last

    void add(Item item) {
        if (first.size() < kept) return first.push_back(std::move(item));
        last.push_back(std::move(item));
        if (last.size() <= kept) return;
        last.pop_front();
        ++omitted;
    }
    /// The item of those kept that the test holds for; null: none.
    template <class Test>
    Item* find(Test test) {
        for (Item& each : first)
            if (test(each)) return &each;
        for (Item& each : last)
            if (test(each)) return &each;
        return nullptr;
    }
    /// What was kept; where some were left out, what `mark` makes of their number stands for them.
    template <class Mark>
    std::vector<Item> items(Mark mark) const {
        std::vector<Item> all = first;
        if (omitted > 0) all.push_back(mark(omitted));
        all.insert(all.end(), last.begin(), last.end());
        return all;
    }

  private:
    std::vector<Item> first;
    std::deque<Item> last;
    std::size_t omitted = 0;
};

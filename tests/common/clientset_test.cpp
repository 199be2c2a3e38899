#include "common/clientset.h"
#include "tests/support/testing.h"

namespace {

// Random operations on two sets: over few ids, so that ranges meet in every way, and over many, so
// that bitmaps of several words come and go.
TEST(ClientSet, BehavesAsASetOfIds) {
    for (const int breadth : {60, 2000}) {
        std::mt19937 random(1);
        const auto pick = [&](int below) {
            return static_cast<int>(random() % static_cast<unsigned>(below));
        };
        ClientSet set, other;
        std::set<int> model, otherModel;
        for (int i = 0; i < 12000; ++i) {
            const int id = pick(breadth) - 20, last = id + pick(12);
            switch (pick(9)) {
            case 0:
                ASSERT_EQ(set.insert(id), model.insert(id).second);
                break;
            case 1:
                ASSERT_EQ(set.erase(id), model.erase(id) == 1);
                break;
            case 2:
                set.insertRange(id, last);
                for (int n = id; n <= last; ++n)
                    model.insert(n);
                break;
            case 3:
                set.insert(other);
                model.insert(otherModel.begin(), otherModel.end());
                break;
            case 4:
                set.erase(other);
                std::erase_if(model, [&](int n) { return otherModel.contains(n); });
                break;
            case 5:
                std::swap(set, other);
                std::swap(model, otherModel);
                break;
            case 6:
                std::erase_if(model, [&](int n) { return !otherModel.contains(n); });
                ASSERT_EQ(set.intersects(other), !model.empty());
                set = set.intersection(other);
                break;
            case 7: { // spread at random, as they come off the wire
                std::vector<int> ids;
                for (int n = id; n < id + breadth / 4; n += 1 + pick(4))
                    ids.push_back(n);
                model.insert(ids.begin(), ids.end());
                for (std::size_t at = 0; at < ids.size();) {
                    const std::size_t taken = set.appendToBits(
                        ids.size() - at, [&](std::size_t n) { return ids[at + n]; });
                    if (taken == 0) set.insert(ids[at]);
                    at += std::max<std::size_t>(taken, 1);
                }
                break;
            }
            case 8: {
                std::vector<int> part, expected;
                set.eachRun(id, last + 100, [&](int from, int to) {
                    for (; from <= to; ++from)
                        part.push_back(from);
                });
                std::copy_if(model.begin(), model.end(), std::back_inserter(expected),
                             [&](int n) { return n >= id && n <= last + 100; });
                ASSERT_EQ(part, expected);
                const auto next = model.lower_bound(id);
                const auto run = set.seek(id);
                ASSERT_EQ(run == ClientSet::RunIterator(), next == model.end());
                if (next == model.end()) break;
                ASSERT_EQ(set.firstFrom(id), *next);
                ASSERT_TRUE(run->first <= *next && *next <= run->last);
                ASSERT_FALSE(model.contains(run->first - 1)) << id << " in " << set.str();
                break;
            }
            }
            // The same members in the same order, in disjoint ranges that do not touch.
            ASSERT_TRUE(std::equal(set.begin(), set.end(), model.begin(), model.end()))
                << set.str();
            ASSERT_EQ(set.size(), model.size());
            const auto runs = set.ranges();
            for (std::size_t n = 1; n < runs.size(); ++n)
                ASSERT_GT(runs[n].first, runs[n - 1].last + 1);
            ASSERT_EQ(set, ClientSet(runs));
            for (int n = id - 60; n < id + 60; ++n)
                ASSERT_EQ(set.contains(n), model.contains(n)) << n << " in " << set.str();
        }
    }
}

TEST(ClientSet, TheEndsOfTheNumbers) {
    ClientSet set{INT_MIN, INT_MAX};
    EXPECT_EQ(set.str(), "-2147483648 2147483647 ");
    set.insertRange(INT_MIN, INT_MAX);
    EXPECT_EQ(set.size(), std::size_t{1} << 32);
    EXPECT_TRUE(set.contains(0));
    EXPECT_EQ(set.intersection({INT_MIN, 0, INT_MAX}).size(), 3u);
    EXPECT_TRUE(set.erase(INT_MIN));
    set.erase(ClientSet{0, INT_MAX});
    EXPECT_EQ(set.str(), "-2147483647:-1 1:2147483646 ");
}

} // namespace

#include "common/clientset.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <random>
#include <set>
#include <vector>

namespace {

constexpr int lowest = std::numeric_limits<int>::min();
constexpr int highest = std::numeric_limits<int>::max();

// The same members in the same order, in disjoint ranges that do not touch.
void expectSame(const ClientSet& set, const std::set<int>& model) {
    ASSERT_EQ(std::vector<int>(set.begin(), set.end()),
              std::vector<int>(model.begin(), model.end()));
    ASSERT_EQ(set.size(), model.size());
    const auto& runs = set.ranges();
    for (std::size_t i = 1; i < runs.size(); ++i) {
        ASSERT_GT(static_cast<std::int64_t>(runs[i].first), runs[i - 1].last + std::int64_t{1});
    }
}

// Random operations on two sets over a few ids, so that ranges meet in every way.
TEST(ClientSet, BehavesAsASetOfIds) {
    std::mt19937 random(1);
    const auto pick = [&](int below) {
        return static_cast<int>(random() % static_cast<unsigned>(below));
    };
    ClientSet set, other;
    std::set<int> model, otherModel, both;
    for (int i = 0; i < 12000; ++i) {
        const int id = pick(60) - 20, last = id + pick(12);
        switch (pick(7)) {
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
            for (int n : otherModel)
                model.erase(n);
            break;
        case 5:
            std::swap(set, other);
            std::swap(model, otherModel);
            break;
        case 6:
            both.clear();
            std::set_intersection(model.begin(), model.end(), otherModel.begin(), otherModel.end(),
                                  std::inserter(both, both.end()));
            ASSERT_EQ(set.intersects(other), !both.empty());
            set = set.intersection(other);
            model = both;
        }
        expectSame(set, model);
        if (HasFatalFailure()) return;
        for (int n = -22; n < 55; ++n)
            ASSERT_EQ(set.contains(n), model.count(n) == 1) << n << " in " << set.str();
    }
}

TEST(ClientSet, TheEndsOfTheNumbers) {
    ClientSet set{lowest, highest};
    EXPECT_EQ(std::vector<int>(set.begin(), set.end()), (std::vector<int>{lowest, highest}));
    set.insertRange(lowest, highest);
    EXPECT_EQ(set.size(), std::size_t{1} << 32);
    EXPECT_TRUE(set.contains(0));
    EXPECT_EQ(set.intersection({lowest, 0, highest}).size(), 3u);
    EXPECT_TRUE(set.erase(lowest));
    set.erase(ClientSet{0, highest});
    EXPECT_EQ(set.str(), "-2147483647:-1 1:2147483646 ");
}

} // namespace

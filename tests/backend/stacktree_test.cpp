#include "backend/folding/stacktree.h"

#include <gtest/gtest.h>

namespace {

using Groups = std::vector<StackTree::RowGroup>;

TEST(StackTree, MergesStacksAndPutsTheOddOnesFirst) {
    StackTree stacks;
    const ClientSet all{0, 1, 2, 3, 4, 5}, most{0, 1, 2, 4, 5};
    stacks.add(3, {"relax", "simulate", "main"});
    for (int id : most)
        stacks.add(id, {"poll", "exchange", "simulate", "main"});
    EXPECT_EQ(stacks.places(), (Groups{{{"1 client in relax, called by simulate", {3}},
                                        {"5 clients in poll, called by exchange", most}}}));
    EXPECT_EQ(stacks.tree(), (Groups{{{"main", all}},
                                     {{"  simulate", all}},
                                     {{"    relax", {3}}},
                                     {{"    exchange", most}},
                                     {{"      poll", most}}}));
}

TEST(StackTree, CountsThreadsAndToleratesEveryShape) {
    StackTree stacks;
    stacks.add(0, {});
    EXPECT_EQ(stacks.places(), Groups());
    EXPECT_EQ(stacks.tree(), Groups());
    stacks.add(0, {"main"});
    stacks.add(0, {"wait", "worker"});
    stacks.add(0, {"wait", "worker"});
    // Recursion, and the same call in another place, are calls of their own.
    stacks.add(1, {"f", "f", "main"});
    stacks.addWithout(2, "no stack: no process");
    EXPECT_EQ(stacks.places(), (Groups{{{"1 client in main", {0}}},
                                       {{"1 client in wait, called by worker (2 threads)", {0}}},
                                       {{"1 client in f, called by f", {1}}},
                                       {{"no stack: no process", {2}}}}));
    EXPECT_EQ(stacks.tree(), (Groups{{{"worker (2 threads)", {0}}},
                                     {{"  wait (2 threads)", {0}}},
                                     {{"main", {0, 1}}},
                                     {{"  f", {1}}},
                                     {{"    f", {1}}}}));
}

} // namespace

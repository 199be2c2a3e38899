#include "backend/folding/linecutter.h"
#include "backend/folding/stacktree.h"
#include "tests/support/testing.h"

namespace {

const Clock::time_point start{};
const auto later = start + std::chrono::milliseconds(50);

TEST(LineCutter, CutsWhereverTheReadsFall) {
    const std::string text = "one\n\nthree\nfour";
    for (std::size_t size = 1; size <= text.size(); ++size) {
        LineCutter cutter;
        Lines lines;
        for (std::size_t at = 0; at < text.size(); at += size) {
            for (auto& line : cutter.feed(std::string_view(text).substr(at, size), start))
                lines.push_back(line);
        }
        EXPECT_EQ(lines, (Lines{"one", "", "three"})) << size;
        EXPECT_EQ(cutter.takePartial(), "four") << size;
        EXPECT_EQ(cutter.takePartial(), std::nullopt) << size;
    }
}

TEST(LineCutter, ALineTakenUnfinishedGoesOnAsAnother) {
    LineCutter cutter;
    EXPECT_EQ(cutter.feed("half", start), Lines());
    EXPECT_EQ(cutter.takePartial(), "half");
    // The newline alone ends what was taken; an empty line of its own is one. NUL bytes are none.
    EXPECT_EQ(cutter.feed({"\n\n\0", 3}, start), (Lines{""}));
    cutter.feed({"ha\0lf", 5}, start);
    EXPECT_EQ(cutter.takePartial(), "half");
    EXPECT_EQ(cutter.feed(" more\n", start), (Lines{" more"}));
    // The line that the cursor stands on is known still, up to a length.
    cutter.feed("text\nQuestion? (y or n) ", start);
    cutter.takePartial();
    EXPECT_EQ(cutter.tail(), "Question? (y or n) ");
    cutter.breakLine();
    EXPECT_EQ(cutter.tail(), "");
    cutter.feed(std::string(100000, 'x') + ">", start);
    EXPECT_EQ(cutter.tail(), std::string(255, 'x') + ">");
}

TEST(LineCutter, TellsSinceWhenALineWaits) {
    LineCutter cutter;
    EXPECT_EQ(cutter.since(), std::nullopt);
    cutter.feed("a", start);
    cutter.feed("b", later);
    EXPECT_EQ(cutter.since(), start);
    cutter.feed("\nc", later);
    EXPECT_EQ(cutter.since(), later);
    cutter.takePartial();
    EXPECT_EQ(cutter.since(), std::nullopt);
    cutter.feed("d\n", later);
    EXPECT_EQ(cutter.since(), std::nullopt);
}

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

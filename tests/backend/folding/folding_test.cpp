#include "backend/folding/linecutter.h"
#include "backend/folding/safetext.h"
#include "backend/folding/stacktree.h"
#include "tests/support/testing.h"

namespace {

const Clock::time_point start{};
const auto later = start + std::chrono::milliseconds(50);

using Pieces = std::vector<LineCutter::Piece>;

TEST(LineCutter, CutsWhereverTheReadsFall) {
    const std::string text("one\n\nth\0ree\nfour", 16);
    for (std::size_t size = 1; size <= text.size(); ++size) {
        LineCutter cutter;
        Pieces lines;
        for (std::size_t at = 0; at < text.size(); at += size) {
            for (auto& line : cutter.feed(std::string_view(text).substr(at, size), start))
                lines.push_back(line);
        }
        EXPECT_EQ(lines, (Pieces{{"one"}, {""}, {{"th\0ree", 6}}})) << size;
        EXPECT_EQ(cutter.takePartial(), (LineCutter::Piece{"four", false, false})) << size;
        EXPECT_EQ(cutter.takePartial(), std::nullopt) << size;
    }
}

TEST(LineCutter, WhatFollowsATakenLineGoesOnWithIt) {
    LineCutter cutter;
    cutter.feed("half", start);
    EXPECT_EQ(cutter.takePartial()->text, "half");
    // The newline alone ends what was taken, and so does a terminal's; an empty line is one.
    EXPECT_EQ(cutter.feed("\n\n", start), (Pieces{{"", true, true}, {""}}));
    cutter.feed("half\r", start);
    EXPECT_EQ(cutter.takePartial()->text, "half");
    EXPECT_EQ(cutter.takePartial(), std::nullopt);
    EXPECT_EQ(cutter.feed("\nnext\r\n", start), (Pieces{{"\r", true, true}, {"next\r"}}));
    // A character is not torn, but what never becomes one is shown in the end.
    cutter.feed("na\xc3", start);
    EXPECT_EQ(cutter.takePartial(), (LineCutter::Piece{"na", false, false}));
    EXPECT_EQ(cutter.since(), std::nullopt);
    EXPECT_EQ(cutter.feed("\xaf", start), Pieces());
    EXPECT_EQ(cutter.takePartial(), (LineCutter::Piece{"\xc3\xaf", true, false}));
    EXPECT_EQ(cutter.feed("ve\xe2\x82\nnew", start), (Pieces{{"ve\xe2\x82", true, true}}));
    EXPECT_EQ(cutter.takeRest()->text, "new");
    EXPECT_EQ(cutter.feed("\n", start), (Pieces{{""}}));
    // The line that the cursor stands on is known still, up to a length.
    cutter.feed("text\nQuestion? (y or n) ", start);
    cutter.takePartial();
    EXPECT_EQ(cutter.tail(), "Question? (y or n) ");
    cutter.takeRest();
    EXPECT_EQ(cutter.tail(), "");
    cutter.feed(std::string(100000, 'x') + ">", start);
    EXPECT_EQ(cutter.tail(), std::string(255, 'x') + ">");
}

TEST(LineCutter, HoldsNoMoreOfALineThanItsBound) {
    LineCutter cutter;
    Pieces pieces;
    const std::string wide(LineCutter::maxLine / 4, '.');
    for (int i = 0; i < 9; ++i)
        for (auto& piece : cutter.feed(wide + "!", start))
            pieces.push_back(std::move(piece));
    for (auto& piece : cutter.feed("\n", start))
        pieces.push_back(std::move(piece));
    ASSERT_EQ(pieces.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(pieces[i].goesOn, i > 0);
        EXPECT_EQ(pieces[i].ended, i == 2);
        EXPECT_EQ(pieces[i].text.size(), i < 2 ? LineCutter::maxLine : wide.size() + 9);
    }
}

TEST(LineCutter, TellsSinceWhenALineWaits) {
    LineCutter cutter;
    EXPECT_EQ(cutter.since(), std::nullopt);
    cutter.feed("a", start);
    cutter.feed("b", later);
    EXPECT_EQ(cutter.since(), start);
    EXPECT_EQ(cutter.grownAt(), later);
    cutter.feed("\nc", later);
    EXPECT_EQ(cutter.since(), later);
    cutter.takePartial();
    EXPECT_EQ(cutter.since(), std::nullopt);
    cutter.feed("d\n", later);
    EXPECT_EQ(cutter.since(), std::nullopt);
}

TEST(SafeText, LeavesNoControlBytes) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"plain\ttext ~", "plain\ttext ~"},
        {std::string("\0", 1), "^@"},
        {"\x1b[2J\a\x7f\b", "^[[2J^G^?^H"},
        {"12345678\x1b", "12345678^["},
        {"caf\xc3\xa9 \xe2\x80\x98x\xe2\x80\x99 \xf0\x9f\x98\x80",
         "caf\xc3\xa9 \xe2\x80\x98x\xe2\x80\x99 \xf0\x9f\x98\x80"},
        // Upper control characters: a byte of their own, in what is no UTF-8, and as UTF-8.
        {"\x9b"
         "2J",
         "M-^[2J"},
        {"\xe9t\xe9", "\xe9t\xe9"},
        {"\xe2\x9b"
         "c",
         "\xe2M-^[c"},
        {"\xe0\x9b\x9b", "\xe0M-^[M-^["},
        {"\xed\xa0\x80", "\xed\xa0M-^@"},
        {"\xf4\x90\x80\x80", "\xf4M-^PM-^@M-^@"},
        {"\xc0\x9b", "\xc0M-^["},
        {"\xc2\x9b"
         "2J\xc2\xa0",
         "M-^[2J\xc2\xa0"},
        {"\x90\xc3\x9b", "M-^P\xc3\x9b"},
        // Where returns stand, the last piece counts that is not empty.
        {"10%\r20%\r", "20%"},
        {"10%\r\r\r", "10%"},
        {"\r", ""},
        {"a\rb\a\r", "b^G"},
    };
    for (const auto& [text, safe] : cases) {
        EXPECT_EQ(SafeText::line(text), safe);
        EXPECT_EQ(SafeText::line(safe), safe);
    }
    EXPECT_EQ(SafeText::of("a\rb"), "a^Mb");
    const std::pair<std::string, std::size_t> ends[] = {
        {"", 0},         {"a", 0},        {"\xc3", 1},
        {"\xc3\xa9", 0}, {"\xe2\x82", 2}, {"\xf0\x9f\x98", 3},
        {"\xe0\x80", 0}, {"\xff", 0},     {"\x80\x80\x80\x80", 0},
    };
    for (const auto& [text, bytes] : ends)
        EXPECT_EQ(SafeText::unfinished(text), bytes) << text;
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

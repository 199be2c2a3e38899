#include "backend/folding/linecutter.h"

#include <gtest/gtest.h>

namespace {

using Lines = std::vector<std::string>;

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

} // namespace

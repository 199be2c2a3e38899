#include "console/readline.h"

#include <gtest/gtest.h>

namespace {

// Empties the pool of everything that was in it, and fills it with these words.
void poolOf(std::initializer_list<const char*> words) {
    static int fillers = 0;
    for (int i = 0; i < 400; ++i)
        Readline::addContext("~" + std::to_string(fillers++));
    for (const char* word : words)
        Readline::addContext(word);
}

// What the tab key offers for a prefix, press by press.
std::string offered(const std::string& prefix, int presses) {
    std::string words;
    for (int i = 0; i < presses; ++i)
        words += Readline::generateVariable(prefix, i) + "|";
    return words;
}

TEST(Completion, OldestFirst) {
    poolOf({"printf", "print", "  set print pretty ", "Print", " \t", "", "run"});
    EXPECT_EQ(offered("pri", 3), "printf|print||");
    EXPECT_EQ(offered("set", 2), "set print pretty ||");
    // A hit on the newest entry goes on with the oldest.
    EXPECT_EQ(offered("run", 3), "run|run|run|");
    poolOf({"printf", "print"});
    EXPECT_EQ(offered("pri", 5), "printf|print|printf|print|printf|");
    // Behind the end a cycle offers nothing more.
    poolOf({"a1", "b"});
    EXPECT_EQ(offered("a", 4), "a1||||");
}

TEST(Completion, TheWordAddedAgainKeepsItsPlace) {
    poolOf({"w1", "w2", "w3", "w1", "x"});
    // Three of 400 are left behind 397 others; one more drops the oldest, added again or not.
    for (int i = 0; i < 396; ++i)
        Readline::addContext("y" + std::to_string(i));
    EXPECT_EQ(offered("w", 4), "w1|w2|w3||");
    Readline::addContext("y0");
    Readline::addContext("z");
    EXPECT_EQ(offered("w", 3), "w2|w3||");
    Readline::addContext("w1");
    EXPECT_EQ(offered("w", 4), "w3|w1|w3|w1|"); // the newest now
}

} // namespace

#include "common/catalog.h"
#include "console/parser.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace {

struct Output {
    int number;
    ClientSet clients;
    std::string text;
    Line::State state = Line::EQUAL;
};

Line lineOf(const Output& output) {
    Line line(output.number, output.state);
    line.addBEs(output.clients);
    line.setContent(output.text);
    line.generateKey();
    return line;
}

Data record(const std::vector<Output>& lines) {
    Data data;
    ClientSet all;
    for (const Output& output : lines) {
        const Line line = lineOf(output);
        data.addLine(&line);
        all.insert(output.clients);
    }
    if (!all.empty()) data.setBounds(all.front(), all.back(), static_cast<int>(all.size()));
    return data;
}

// The bytes that a record's display writes; the colours are [=, [~ and [!, the reset is ].
std::string shown(Data& data, Parser::Mode mode, const char* pattern = nullptr) {
    Parser parser;
    parser.setColor("[=", Parser::EQUAL_COLOR);
    parser.setColor("[~", Parser::SIMILAR_COLOR);
    parser.setColor("[!", Parser::DIFFERENT_COLOR);
    testing::internal::CaptureStdout();
    parser.dump(&data, mode, pattern);
    std::string text = testing::internal::GetCapturedStdout();
    const std::string reset = "\x1b[00m";
    for (std::size_t at; (at = text.find(reset)) != std::string::npos;)
        text.replace(at, reset.size(), "]");
    return text;
}

TEST(Parser, Verdicts) {
    const std::string x40(40, 'x');
    const struct {
        std::string a, b;
        Line::State state;
    } cases[] = {
        {"0123456789", "012345678x", Line::SIMILAR},
        {"01234", "0123x", Line::DIFFERENT}, // one byte in five is too much
        {"012345", "01234x", Line::SIMILAR},
        {x40.substr(7) + "1234567", x40.substr(7) + "abcdefgh", Line::SIMILAR},
        {x40.substr(8) + "1234567", x40.substr(8) + "abcdefgh", Line::DIFFERENT},
        {"", "a", Line::DIFFERENT},
        {"Same", "same", Line::DIFFERENT},
    };
    for (const auto& [a, b, state] : cases) {
        Line one = lineOf({0, {}, a}), two = lineOf({0, {}, b});
        EXPECT_EQ(Parser().compare(&one, &two), state) << a << " / " << b;
        EXPECT_EQ(Parser().compare(&two, &one), state) << a << " / " << b;
    }
    // A pair of keys has one verdict, whatever the texts.
    Parser parser;
    Line one = lineOf({0, {}, "0123456789"}), two = lineOf({0, {}, "012345678x"});
    Line other = lineOf({0, {}, "y"});
    EXPECT_EQ(parser.compare(&one, &two), Line::SIMILAR);
    other.setKey(two.getKey());
    EXPECT_EQ(parser.compare(&other, &one), Line::SIMILAR);
}

TEST(Parser, Layouts) {
    const std::vector<Output> mixed = {{0, {0, 1, 2, 3, 5, 7, 8, 9}, "0123456789"},
                                       {0, {4}, "012345678x"},
                                       {0, {6}, "!"},
                                       {2, {0, 1}, "T"},
                                       {2, {}, "nobody"}};
    const struct {
        std::vector<Output> lines;
        Parser::Mode mode;
        const char* shown;
    } cases[] = {
        {mixed, Parser::COLLAPSED,
         "[=0:3 5 7:9 | 0123456789]\n[~4 | 012345678x]\n[!6 | !]\n[=0:1 | T]\n[!| nobody]\n"},
        // Expanded lines keep the state in which they came.
        {{{0, {0, 1}, "T1"}, {1, {0, 1}, "T2", Line::SIMILAR}},
         Parser::EXPANDED,
         "[=0 | T1]\n[~0 | T2]\n[=1 | T1]\n[~1 | T2]\n"},
        {{{0, {0}, "a"}, {0, {1, 2, 3}, "b"}, {1, {0, 1, 2, 3}, "c"}},
         Parser::AUTO,
         "[!0 | a]\n[=1:3 | b]\n[=0:3 | c]\n"},
        // A weight above half the clients: that position alone is expanded.
        {{{0, {2}, "a"}, {0, {0}, "b"}, {0, {1}, "c"}, {0, {3}, "d"}, {1, {0, 1, 2, 3}, "e"}},
         Parser::AUTO,
         "[!0 | b]\n[!1 | c]\n[=2 | a]\n[!3 | d]\n[=0:3 | e]\n"},
        {{{0, {0, 1, 2}, "0123456789"}, {0, {3}, "b"}, {0, {4}, "012345678x"}},
         Parser::AUTO,
         "[=0 | 0123456789]\n[=1 | 0123456789]\n[=2 | 0123456789]\n[!3 | b]\n[~4 | 012345678x]\n"},
        // Of the variants larger than the first the last one leads.
        {{{0, {0}, "a"}, {0, {1, 2, 3}, "b"}, {0, {4, 5}, "c"}, {0, {9}, "d"}},
         Parser::COLLAPSED,
         "[!0 | a]\n[!1:3 | b]\n[=4:5 | c]\n[!9 | d]\n"},
    };
    for (const auto& [lines, mode, expected] : cases) {
        Data data = record(lines);
        EXPECT_EQ(shown(data, mode), expected);
    }
    // Clients outside the record's bounds stay unseen; those between its ends cost nothing.
    constexpr int last = std::numeric_limits<int>::max();
    Data wide = record({{0, {0, 7, last}, "x"}});
    EXPECT_EQ(shown(wide, Parser::EXPANDED), "[=0 | x]\n[=7 | x]\n[=2147483647 | x]\n");
    wide.setBounds(1, last - 1, 3);
    EXPECT_EQ(shown(wide, Parser::EXPANDED), "[=7 | x]\n");
}

TEST(Parser, TheFilterSeesThePrefixAndLeavesTheColours) {
    Data data = record({{0, {0, 1}, "alpha"}, {1, {0}, "beta"}, {1, {1}, "gamma\nbeta 2"}});
    const struct {
        Parser::Mode mode;
        const char* pattern;
        const char* shown;
    } cases[] = {
        {Parser::COLLAPSED, "BETA", "[=][=0 | beta]\n[!beta 2]\n"},
        {Parser::COLLAPSED, "'^0:1 '", "[=0:1 | alpha]\n[=][!]"},
        {Parser::EXPANDED, "'^1 ' | match a", "[=][=][=1 | alpha]\n[!1 | gamma\n]\n"},
        {Parser::COLLAPSED, "'(' | match '['",
         "[=0:1 | alpha]\n[=0 | beta]\n[!1 | gamma\nbeta 2]\n"},
    };
    for (const auto& [mode, pattern, expected] : cases)
        EXPECT_EQ(shown(data, mode, pattern), expected) << pattern;
    // A malformed cascade: noticed at the first line, whose colour is out by then.
    const std::string usage =
        std::string(Catalog::get(HELP_MATCH_BRIEF)) + "\n\n" + Catalog::get(HELP_MATCH_DETAIL);
    for (const char* pattern : {"a | grep b", "a |", "'a"})
        EXPECT_EQ(shown(data, Parser::AUTO, pattern), "[=]" + usage) << pattern;
}

} // namespace

#include "common/catalog.h"
#include "display/parser.h"
#include "display/pattern.h"
#include "tests/support/output.h"
#include "tests/support/testing.h"

namespace {

// The bytes that a record's display writes; the colours are [=, [~ and [!, the reset is ].
std::string shown(Data& data, Parser::Mode mode, const char* pattern = nullptr) {
    Parser parser;
    parser.setColor("[=", Parser::EQUAL_COLOR);
    parser.setColor("[~", Parser::SIMILAR_COLOR);
    parser.setColor("[!", Parser::DIFFERENT_COLOR);
    std::string text = printed([&] { parser.dump(&data, mode, pattern); });
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
        Line one = Output{0, {}, a}.line(), two = Output{0, {}, b}.line();
        EXPECT_EQ(Parser().compare(&one, &two), state) << a << " / " << b;
        EXPECT_EQ(Parser().compare(&two, &one), state) << a << " / " << b;
    }
}

TEST(Parser, Layouts) {
    const auto laidOut = [](Parser::Mode mode, const std::vector<Output>& lines) {
        Data data = Output::record(lines);
        return shown(data, mode);
    };
    EXPECT_EQ(laidOut(Parser::COLLAPSED, {{0, {0, 1, 2, 3, 5, 7, 8, 9}, "0123456789"},
                                          {0, {4}, "012345678x"},
                                          {0, {6}, "!"},
                                          {2, {0, 1}, "T"},
                                          {2, {}, "nobody"}}),
              "[=0:3 5 7:9 | 0123456789]\n[~4 | 012345678x]\n[!6 | !]\n[=0:1 | T]\n[!| nobody]\n");
    // Expanded lines keep the state in which they came.
    EXPECT_EQ(laidOut(Parser::EXPANDED, {{0, {0, 1}, "T1"}, {1, {0, 1}, "T2", Line::SIMILAR}}),
              "[=0 | T1]\n[~0 | T2]\n[=1 | T1]\n[~1 | T2]\n");
    const Output same = {1, {0, 1, 2, 3}, "e"};
    EXPECT_EQ(laidOut(Parser::AUTO, {{0, {0}, "a"}, {0, {1, 2, 3}, "b"}, same}),
              "[!0 | a]\n[=1:3 | b]\n[=0:3 | e]\n");
    // A weight above half the clients: that position alone is expanded.
    EXPECT_EQ(
        laidOut(Parser::AUTO, {{0, {2}, "a"}, {0, {0}, "b"}, {0, {1}, "c"}, {0, {3}, "d"}, same}),
        "[!0 | b]\n[!1 | c]\n[=2 | a]\n[!3 | d]\n[=0:3 | e]\n");
    EXPECT_EQ(
        laidOut(Parser::AUTO, {{0, {0, 1}, "0123456789"}, {0, {3}, "b"}, {0, {4}, "012345678x"}}),
        "[=0 | 0123456789]\n[=1 | 0123456789]\n[!3 | b]\n[~4 | 012345678x]\n");
    // Of the variants larger than the first the last one leads.
    EXPECT_EQ(laidOut(Parser::COLLAPSED,
                      {{0, {0}, "a"}, {0, {1, 2, 3}, "b"}, {0, {4, 5}, "c"}, {0, {9}, "d"}}),
              "[!0 | a]\n[!1:3 | b]\n[=4:5 | c]\n[!9 | d]\n");
    // Clients outside the record's bounds stay unseen; those between its ends cost nothing.
    Data wide = Output::record({{0, {0, 7, INT_MAX}, "x"}});
    EXPECT_EQ(shown(wide, Parser::EXPANDED), "[=0 | x]\n[=7 | x]\n[=2147483647 | x]\n");
    wide.setBounds(1, INT_MAX - 1, 3);
    EXPECT_EQ(shown(wide, Parser::EXPANDED), "[=7 | x]\n");
}

TEST(Parser, TheFilterSeesThePrefixAndLeavesTheColours) {
    Data data = Output::record({{0, {0, 1}, "alpha"}, {1, {0}, "beta"}, {1, {1}, "gamma\nbeta 2"}});
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

TEST(Pattern, Cascades) {
    const struct {
        const char *expr, *passing; // of the four lines
    } cases[] = {
        {"Hello", "0 | Hello\nHELLO World\n"},
        {"hello | match 'World'", "HELLO World\n"},
        {"'hello|foo.c:[0-9]+'", "0 | Hello\nHELLO World\nfoo.c:12\n"},
        {"'^[0-9]'", "0 | Hello\n"},
        {"foo . c : 12", "foo.c:12\n"},     // joined without the blanks
        {"Hello 'world'", "HELLO World\n"}, // unquoted words before a quotation are dropped
        {"Hello 'foo' c", "foo.c:12\n"},
        {R"(foo\.c)", "foo.c:12\n"},
        {"'('", "0 | Hello\nHELLO World\nfoo.c:12\nlast"}, // does not compile
        {"'(' | match last", "last"},
        {"| match last", "last"},
        {"nowhere", ""},
        {"last |", "malformed"},
        {"last | grep 'b'", "malformed"},
        {"last | matches 'b'", "malformed"},
        {"last | | match b", "malformed"},
        {"last | match 'b", "malformed"},
    };
    for (const auto& [expr, expected] : cases) {
        Pattern pattern;
        std::string passed = "malformed";
        if (pattern.compare(expr) == 0) {
            passed.clear();
            const bool any = pattern.filter("0 | Hello\nHELLO World\nfoo.c:12\nlast", passed);
            EXPECT_EQ(any, !passed.empty());
        }
        EXPECT_EQ(passed, expected) << expr;
    }
}

} // namespace

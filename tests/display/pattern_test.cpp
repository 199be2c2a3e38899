#include "display/pattern.h"

#include <gtest/gtest.h>

namespace {

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

#include "common/pattern.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

// What of the text passes; nothing when the cascade is malformed.
std::optional<std::string> passing(const std::string& text, const char* expr) {
    Pattern pattern;
    if (pattern.compare(expr) != 0) return std::nullopt;
    std::string out;
    const bool passed = pattern.filter(text.c_str(), out);
    EXPECT_EQ(passed, !out.empty());
    return out;
}

TEST(Pattern, Cascades) {
    const struct {
        const char* expr;
        const char* passing; // of the four words; null: malformed
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
        {"last |", nullptr},
        {"last | grep 'b'", nullptr},
        {"last | matches 'b'", nullptr},
        {"last | | match b", nullptr},
        {"last | match 'b", nullptr},
    };
    for (const auto& [expr, expected] : cases) {
        const auto passed = passing("0 | Hello\nHELLO World\nfoo.c:12\nlast", expr);
        EXPECT_EQ(passed.value_or("malformed"), expected ? expected : "malformed") << expr;
    }
}

} // namespace

#include "common/token.h"
#include "tests/support/testing.h"

namespace {

// The tokens of a line as "type:text", one blank between them. The line is read from a buffer of
// its exact size, so that a scan past its end is found.
std::string scanned(const std::string& line) {
    const std::vector<char> exact(line.c_str(), line.c_str() + line.size() + 1);
    Token token(exact.data());
    std::string tokens;
    for (int guard = 0; guard < 100; ++guard) {
        const TokenType type = token.Next();
        if (type == END) return tokens.empty() ? tokens : tokens.substr(1);
        tokens += ' ' + std::to_string(type) + ':' + static_cast<std::string>(token);
    }
    return "no end";
}

TEST(Token, Scanning) {
    const struct {
        const char *line, *tokens;
    } cases[] = {{" \t\v\r\n", ""},
                 {"_a1_", "1:_a1_"},
                 {"a:b", "1:a 3:: 1:b"},
                 {"12ab", "2:12 1:ab"},
                 {"-3", "3:- 2:3"},
                 {R"(\*x)", R"(3:\* 1:x)"},
                 {R"(x\)", R"(1:x 3:\)"},
                 {"'it''s'", "4:'it' 4:'s'"},
                 {R"("a\"b")", R"(4:"a\"b")"},
                 {"'", "5:'"},
                 {"'a\tb'", "5:'a 1:b 5:'"},
                 {"'a\xc3\xa4'", "5:'a 3:\xc3 3:\xa4 5:'"},
                 {"\xff\x01", "3:\xff 3:\x01"},
                 {R"('a\\')", R"(5:'a\\')"}}; // the last quote counts as escaped
    for (const auto& [line, tokens] : cases)
        EXPECT_EQ(scanned(line), tokens) << line;
}

} // namespace

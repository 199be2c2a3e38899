#include "common/token.h"
#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string line = textOf(bytes, size);
    Token token(line.c_str());
    const char* at = line.c_str();
    const char* end = at + std::char_traits<char>::length(at);
    for (;;) {
        const TokenType ahead = token.LookAhead();
        const TokenType type = token.Next();
        expect(type == ahead);
        const std::string text = token;
        // Tokens move on by at least one character and never leave the line.
        expect(token.Cursor() >= at && token.Cursor() + text.size() <= end);
        if (type == END) break;
        expect(!text.empty());
        at = token.Cursor() + text.size();
        token.Retract();
        expect(token.Next() == type && static_cast<std::string>(token) == text);
    }
    expect(token.Cursor() == end);
    return 0;
}

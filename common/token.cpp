#include "common/token.h"

#include "common/catalog.h"

#include <cassert>
#include <cctype>
#include <cstdlib>
#include <cstring>

namespace {

// The classification of <cctype> is undefined for negative characters.
int code(char c) { return static_cast<unsigned char>(c); }

bool startsWord(char c) { return std::isalpha(code(c)) || c == '_'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

} // namespace

Token::Token(const char* line) : prev(line), begin(line), end(line) { assert(line); }

void Token::SkipSpace() {
    while (std::isspace(code(*end)))
        ++end;
}

TokenType Token::Next() {
    SkipSpace();
    prev = begin;
    begin = end;
    type = scan();
    return type;
}

TokenType Token::scan() {
    const char first = *end;
    if (first == '\0') return END;
    if (startsWord(first)) {
        while (startsWord(*end) || isDigit(*end))
            ++end;
        return IDENTIFIER;
    }
    if (isDigit(first)) {
        while (isDigit(*end))
            ++end;
        return NUMBER;
    }
    ++end;
    if (first == '\'' || first == '"') {
        // Only the one character before a quote is looked at: a quotation that ends in two
        // backslashes is not closed by the quote behind them.
        while (std::isprint(code(*end)) && !(*end == first && end[-1] != '\\'))
            ++end;
        if (*end != first) return ERRFORMAT;
        ++end;
        return QUOTATION;
    }
    if (first == '\\' && *end != '\0') ++end;
    return SYMBOL;
}

TokenType Token::LookAhead() {
    const Token here = *this;
    const TokenType ahead = Next();
    prev = here.prev;
    begin = here.begin;
    end = here.end;
    return ahead;
}

void Token::Retract() {
    end = begin;
    begin = prev;
}

bool Token::operator==(const char* word) const {
    return std::strncmp(word, begin, static_cast<std::size_t>(end - begin)) == 0;
}

Token::operator int() const { return std::atoi(begin); }

void Token::Throw(int id) {
    error = Catalog::get(id);
    throw *this;
}

void Token::ThrowPrev(int id) {
    Retract();
    Throw(id);
}

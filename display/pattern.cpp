#include "display/pattern.h"

#include "common/token.h"

#include <cstdio>
#include <cstring>

void Pattern::Release::operator()(regex_t* re) const {
    ::regfree(re);
    delete re;
}

void Pattern::add(const std::string& expr) {
    if (expr.empty()) return;
    // Owned by the plain pointer until compiled: regfree takes compiled expressions only.
    auto compiled = std::make_unique<regex_t>();
    if (::regcomp(compiled.get(), expr.c_str(), REG_EXTENDED | REG_ICASE) != 0) return;
    reglist.emplace_back(compiled.release());
}

int Pattern::compare(const char* expr) {
    Token token(expr);
    std::string stage;
    for (;;) {
        const TokenType type = token.Next();
        const std::string text = token;
        switch (type) {
        case END:
            add(stage);
            return 0;
        case SYMBOL:
            if (token != '|') {
                stage += text;
                break;
            }
            add(stage);
            stage.clear();
            // The whole word, unlike elsewhere: an abbreviation may be any word of a shell pipe.
            if (token.Next() != IDENTIFIER || static_cast<std::string>(token) != "match") return -1;
            break;
        case QUOTATION:
            // A quoted expression stands alone: what was gathered before it is dropped.
            add(text.substr(1, text.size() - 2));
            stage.clear();
            break;
        case IDENTIFIER:
        case NUMBER:
            stage += text;
            break;
        default:
            return -1;
        }
    }
}

int Pattern::match(const char* text, const regex_t* re) const {
    if (!text) return -1;
    regmatch_t found[2];
    // A failure other than "no match" (memory, say) lets the text pass: better too much than lost.
    return ::regexec(re, text, 2, found, 0) == REG_NOMATCH ? -1 : 0;
}

bool Pattern::passes(const char* piece) const {
    for (const Expression& re : reglist)
        if (match(piece, re.get()) != 0) return false;
    return true;
}

bool Pattern::filter(const char* text, std::string& out) const {
    if (!text) return false;
    bool passed = false;
    std::string piece;
    for (;;) {
        const char* newline = std::strchr(text, '\n');
        if (newline)
            piece.assign(text, newline + 1);
        else
            piece.assign(text);
        if (passes(piece.c_str())) {
            out += piece;
            passed = true;
        }
        if (!newline) return passed;
        text = newline + 1;
    }
}

int Pattern::dump(const char* text, const char* expr) {
    if (!text) return 0;
    if (!expr) {
        std::printf("%s", text);
        return 0;
    }
    struct Cleanup {
        Pattern& pattern;
        ~Cleanup() { pattern.free(); }
    } const cleanup{*this};
    if (compare(expr) != 0) throw BadPattern();
    std::string out;
    const bool passed = filter(text, out);
    std::printf("%s", out.c_str());
    return passed ? 1 : 0;
}

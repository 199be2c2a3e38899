#include "backend/folding/safetext.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

unsigned char byteAt(std::string_view text, std::size_t at) {
    return static_cast<unsigned char>(text[at]);
}

bool isSpecial(unsigned char c) { return (c < 0x20 && c != '\t') || c >= 0x7f; }

// The index of the first byte that is neither a printing character of ASCII nor a tab; the size
// when there is none. Eight bytes at a time: carries into their highest bits tell whether to look
// closer.
std::size_t firstSpecial(std::string_view text, std::size_t from) {
    constexpr std::uint64_t ones = 0x0101010101010101, tops = ones * 0x80;
    while (from < text.size()) {
        const std::size_t end = std::min(from + 8, text.size());
        std::uint64_t word = 0;
        if (end == from + 8) {
            std::memcpy(&word, text.data() + from, 8);
            const std::uint64_t low = (word - ones * 0x20) & ~word;
            const std::uint64_t high = (word + ones) | word;
            if (((low | high) & tops) == 0) from = end;
        }
        for (; from < end; ++from)
            if (isSpecial(byteAt(text, from))) return from;
    }
    return from;
}

// How many bytes the UTF-8 character has that begins with this byte; 0: none does (RFC 3629).
std::size_t lengthOf(unsigned char first) {
    if (first < 0x80) return 1;
    if (first < 0xc2 || first > 0xf4) return 0;
    return first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
}

// Whether this byte may follow the first one.
bool maySecond(unsigned char first, unsigned char second) {
    const unsigned char lowest = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
    const unsigned char highest = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
    return second >= lowest && second <= highest;
}

// How many bytes of a character begin here, up to all of it; 0: no character of several bytes does.
std::size_t characterAt(std::string_view text, std::size_t at) {
    const std::size_t whole = lengthOf(byteAt(text, at));
    if (whole < 2) return 0;
    std::size_t here = 1;
    while (here < whole && at + here < text.size()) {
        const unsigned char next = byteAt(text, at + here);
        if (here == 1 ? !maySecond(byteAt(text, at), next) : (next & 0xc0) != 0x80) return 0;
        ++here;
    }
    return here;
}

// Adds what begins at a special byte; gives back how many bytes that was.
std::size_t addSpecial(std::string& to, std::string_view text, std::size_t at) {
    const unsigned char c = byteAt(text, at);
    if (c < 0x80) {
        to += {'^', static_cast<char>(c ^ 0x40)};
        return 1;
    }
    const std::size_t length = characterAt(text, at);
    const bool isWhole = length > 1 && length == lengthOf(c);
    const unsigned char last = isWhole && c == 0xc2 ? byteAt(text, at + 1) : c;
    if (last <= 0x9f) {
        to += {'M', '-', '^', static_cast<char>((last & 0x7f) ^ 0x40)};
        return isWhole ? 2 : 1;
    }
    to += text.substr(at, isWhole ? length : 1);
    return isWhole ? length : 1;
}

} // namespace

std::string SafeText::of(std::string text) {
    std::size_t at = firstSpecial(text, 0);
    if (at == text.size()) return text;
    std::string safe;
    safe.reserve(text.size());
    safe.assign(text, 0, at);
    while (at < text.size()) {
        at += addSpecial(safe, text, at);
        const std::size_t next = firstSpecial(text, at);
        safe.append(text, at, next - at);
        at = next;
    }
    return safe;
}

std::string SafeText::line(std::string text) {
    if (text.find('\r') == std::string::npos) return of(std::move(text));
    const std::size_t last = text.find_last_not_of('\r');
    text.erase(last == std::string::npos ? 0 : last + 1);
    const std::size_t before = text.rfind('\r');
    if (before != std::string::npos) text.erase(0, before + 1);
    return of(std::move(text));
}

SafeText::Character SafeText::character(std::string_view text, std::size_t at) {
    const std::size_t length = characterAt(text, at);
    if (length == 0) return {1, lengthOf(byteAt(text, at)) == 1};
    return {length, length == lengthOf(byteAt(text, at))};
}

std::size_t SafeText::unfinished(std::string_view text) {
    const std::size_t most = std::min<std::size_t>(3, text.size());
    for (std::size_t back = 1; back <= most; ++back) {
        const unsigned char c = byteAt(text, text.size() - back);
        if ((c & 0xc0) == 0x80) continue; // inside of a character
        return characterAt(text, text.size() - back) == back && lengthOf(c) > back ? back : 0;
    }
    return 0;
}

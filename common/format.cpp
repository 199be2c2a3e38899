#include "common/format.h"

#include <cctype>
#include <cstddef>
#include <map>
#include <optional>

namespace {

constexpr std::string_view flags = "-+ #0'";
constexpr std::string_view lengths = "hljztLq";
constexpr std::string_view letters = "diouxXeEfFgGaAcspn";

// One conversion, from its "%" on.
struct Conversion {
    std::size_t size = 0;  // characters, the "%" included
    std::size_t place = 0; // the argument's number when it is given ("%2$s"), else 0
    std::string type;      // length modifiers and letter; "%" for a literal percent sign
    bool star = false;     // width or precision from an argument
};

std::optional<Conversion> scan(std::string_view text) {
    Conversion found;
    std::size_t at = 1;
    const auto peek = [&] { return at < text.size() ? text[at] : '\0'; };
    const auto skipDigits = [&] {
        const std::size_t from = at;
        while (std::isdigit(static_cast<unsigned char>(peek())))
            ++at;
        return text.substr(from, at - from);
    };
    const auto skipWidth = [&] {
        if (peek() == '*') {
            found.star = true;
            ++at;
        }
        skipDigits();
    };

    const std::string_view number = skipDigits();
    if (!number.empty() && peek() == '$' && number.size() <= 2) {
        for (const char digit : number)
            found.place = found.place * 10 + static_cast<std::size_t>(digit - '0');
        if (found.place == 0) return std::nullopt;
        ++at;
    } else {
        at = 1;
    }
    while (peek() != '\0' && flags.find(peek()) != flags.npos)
        ++at;
    skipWidth();
    if (peek() == '.') {
        ++at;
        skipWidth();
    }
    const std::size_t type = at;
    while (peek() != '\0' && lengths.find(peek()) != lengths.npos)
        ++at;
    if (peek() == '%') {
        if (at != 1) return std::nullopt;
    } else if (peek() == '\0' || letters.find(peek()) == letters.npos) {
        return std::nullopt;
    }
    found.size = at + 1;
    found.type = text.substr(type, at + 1 - type);
    return found;
}

// The types of the arguments that a format takes, by their numbers from 1; nothing when it is
// malformed, takes widths from arguments or mixes numbered and plain conversions.
std::optional<std::map<std::size_t, std::string>> argumentTypes(std::string_view format) {
    std::map<std::size_t, std::string> types;
    std::size_t plain = 0;
    bool numbered = false;
    for (std::size_t at = 0; (at = format.find('%', at)) != format.npos;) {
        const auto conversion = scan(format.substr(at));
        if (!conversion || conversion->star) return std::nullopt;
        at += conversion->size;
        if (conversion->type == "%") continue;
        if (conversion->place != 0)
            numbered = true;
        else
            ++plain;
        if (numbered && plain != 0) return std::nullopt;
        const auto place = numbered ? conversion->place : plain;
        const auto [known, added] = types.emplace(place, conversion->type);
        if (!added && known->second != conversion->type) return std::nullopt;
    }
    // printf must know every argument's type up to the last one.
    if (!types.empty() && types.rbegin()->first != types.size()) return std::nullopt;
    return types;
}

} // namespace

bool sameConversions(const char* left, const char* right) {
    const auto leftTypes = argumentTypes(left);
    const auto rightTypes = argumentTypes(right);
    return leftTypes && rightTypes && *leftTypes == *rightTypes;
}

std::string fillFirst(std::string_view format, std::string_view value) {
    std::string text;
    bool filled = false;
    for (std::size_t at = 0; at < format.size();) {
        if (format[at] != '%') {
            text += format[at++];
            continue;
        }
        const auto conversion = scan(format.substr(at));
        if (!conversion || conversion->type == "%") {
            text += '%';
            at += conversion ? conversion->size : 1;
            continue;
        }
        if (!filled) text += value;
        filled = true;
        at += conversion->size;
    }
    return text;
}

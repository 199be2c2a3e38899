#include "backend/folding/json.h"

#include "backend/folding/safetext.h"

#include <array>
#include <cstdint>
#include <cstdio>

namespace {

void addBase64(std::string& to, std::string_view bytes) {
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::string_view part = bytes.substr(at, 3);
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < 3; ++i)
            bits = bits << 8 | (i < part.size() ? static_cast<unsigned char>(part[i]) : 0u);
        for (std::size_t i = 0; i < 4; ++i)
            to += i <= part.size() ? digits[bits >> (18 - 6 * i) & 63] : '=';
    }
}

} // namespace

bool Json::add(std::string& to, std::string_view text) {
    bool valid = true;
    to += '"';
    for (std::size_t at = 0; at < text.size();) {
        const auto c = static_cast<unsigned char>(text[at]);
        if (c >= 0x80) {
            const SafeText::Character next = SafeText::character(text, at);
            if (next.whole)
                to += text.substr(at, next.bytes);
            else
                to += "\xef\xbf\xbd";
            valid = valid && next.whole;
            at += next.bytes;
            continue;
        }
        ++at;
        if (c == '"' || c == '\\') {
            to += {'\\', static_cast<char>(c)};
        } else if (c < 0x20 || c == 0x7f) {
            std::array<char, 8> code{};
            std::snprintf(code.data(), code.size(), "\\u%04x", c);
            to += code.data();
        } else {
            to += static_cast<char>(c);
        }
    }
    to += '"';
    return valid;
}

void Json::addText(std::string& to, std::string_view text) {
    to += ",\"text\":";
    if (add(to, text)) return;
    to += ",\"raw\":\"";
    addBase64(to, text);
    to += '"';
}

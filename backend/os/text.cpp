#include "backend/os/text.h"

#include <algorithm>
#include <cctype>
#include <cstring>

std::string Text::of(const Command& command) {
    std::string text(command.getContent() ? command.getContent() : "",
                     static_cast<std::size_t>(command.getLength()));
    return text.substr(0, text.find_first_of(std::string("\0\n\r", 3)));
}

std::string Text::firstWord(const std::string& text) {
    return text.substr(0, text.find_first_of(" \t"));
}

std::string Text::afterWord(const std::string& text) {
    const std::size_t blank = text.find_first_of(" \t");
    const std::size_t at = text.find_first_not_of(" \t", blank);
    return blank == std::string::npos || at == std::string::npos ? "" : text.substr(at);
}

std::string Text::quoted(const std::string& word) {
    if (!word.empty() && std::ranges::all_of(word, [](unsigned char c) {
            return std::isalnum(c) || std::strchr("_./:@%+=,-", c);
        }))
        return word;
    if (word.empty()) return "''";
    // Nothing empty in quotes beside other text: wordexp(3) takes that for a word of its own.
    std::string text;
    for (std::size_t at = 0; at < word.size();) {
        const std::size_t end = std::min(word.find('\'', at), word.size());
        if (end > at) text += "'" + word.substr(at, end - at) + "'";
        if (end < word.size()) text += "\\'";
        at = end + 1;
    }
    return text;
}

std::string Text::unquoted(const std::string& text) {
    const bool quoted =
        text.size() >= 2 && (text[0] == '\'' || text[0] == '"') && text.back() == text[0];
    return quoted ? text.substr(1, text.size() - 2) : text;
}

std::string Text::list(const ClientSet& ids) {
    std::string text = ids.str();
    if (!text.empty()) text.pop_back();
    return text;
}

std::string Text::baseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

#include "common/split.h"

#include <cctype>
#include <cstdio>
#include <string_view>

namespace {

bool isSpace(char c) { return std::isspace(static_cast<unsigned char>(c)); }

std::string_view trim(std::string_view field) {
    while (!field.empty() && isSpace(field.front()))
        field.remove_prefix(1);
    while (!field.empty() && isSpace(field.back()))
        field.remove_suffix(1);
    return field;
}

void split(std::string_view text, const char* separators, bool all,
           std::vector<std::string>& fields) {
    std::size_t at = 0;
    while ((at = text.find_first_not_of(separators, at)) != text.npos) {
        const bool toSeparator = all || fields.empty();
        const std::size_t end = toSeparator ? text.find_first_of(separators, at) : text.npos;
        const std::string_view field = trim(text.substr(at, end - at));
        if (!field.empty()) fields.emplace_back(field);
        at = end == text.npos ? text.size() : end;
    }
}

void print(const std::vector<std::string>& fields) {
    std::printf("num of entries = %ld\n", static_cast<long>(fields.size()));
    for (const std::string& field : fields)
        std::printf("%s ", field.c_str());
    std::printf("\n");
}

} // namespace

// By value, so that what callers give is copied: what is split is never theirs.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
Split::Split(std::string text, const char* separators, bool all) {
    split(text, separators, all, *this);
}

void Split::dump() const { print(*this); }

SplitRef::SplitRef(std::string& text, const char* separators, bool all) {
    split(text, separators, all, *this);
}

void SplitRef::dump() const { print(*this); }

#include "fold/labelform.h"

#include <algorithm>
#include <stdexcept>

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isOfName(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '_' ||
           c == '-';
}

std::size_t digits(std::string_view line, std::size_t from) {
    std::size_t end = from;
    while (end < line.size() && isDigit(line[end]))
        ++end;
    return end - from;
}

// The text behind a label that ends here; nothing when it does not end here.
std::optional<LabelledLine> behind(std::string_view label, std::string_view line, std::size_t at) {
    if (at == line.size()) return LabelledLine{label, {}};
    if (line[at] != ' ') return std::nullopt;
    return LabelledLine{label, line.substr(at + 1)};
}

// "1,3]<stdout>:" from behind the bracket or the name: the label, and where the text begins.
std::optional<std::string_view> rankOfTag(std::string_view line, std::size_t& at) {
    const std::size_t job = digits(line, at);
    if (job == 0 || line.substr(at + job, 1) != ",") return std::nullopt;
    const std::size_t begin = at + job + 1;
    const std::size_t length = digits(line, begin);
    if (length == 0) return std::nullopt;
    for (const std::string_view channel : {"]<stdout>:", "]<stderr>:", "]<stddiag>:"}) {
        if (!line.substr(begin + length).starts_with(channel)) continue;
        at = begin + length + channel.size();
        return line.substr(begin, length);
    }
    return std::nullopt;
}

// POSIX knows no \d, and no class with a backslash in brackets.
std::string inPosix(const std::string& expression) {
    std::string posix;
    bool inBrackets = false;
    for (std::size_t i = 0; i < expression.size(); ++i) {
        const char c = expression[i];
        const char next = i + 1 < expression.size() ? expression[i + 1] : '\0';
        if (c == '\\' && (next == 'd' || next == 'w' || next == 's')) {
            const std::string of = next == 'd' ? "0-9" : next == 'w' ? "[:alnum:]_" : "[:space:]";
            posix += inBrackets ? of : "[" + of + "]";
            ++i;
        } else if (c == '\\' && !inBrackets && next != '\0') {
            posix += {c, next};
            ++i;
        } else if (c == '[' && !inBrackets) {
            inBrackets = true;
            posix += c;
            // A closing bracket that comes first is one of the characters.
            if (next == '^') posix += expression[++i];
            if (i + 1 < expression.size() && expression[i + 1] == ']') posix += expression[++i];
        } else if (c == '[' && (next == ':' || next == '.' || next == '=')) {
            const std::size_t end = expression.find({next, ']'}, i + 2);
            if (end == std::string::npos) return expression;
            posix += expression.substr(i, end + 2 - i);
            i = end + 1;
        } else {
            if (c == ']') inBrackets = false;
            posix += c;
        }
    }
    return posix;
}

} // namespace

std::optional<LabelledLine> LabelForm::divide(Kind kind, std::string_view line) {
    std::size_t at = 0;
    switch (kind) {
    case NUMBER: {
        while (at < line.size() && line[at] == ' ')
            ++at;
        const std::size_t length = digits(line, at);
        const std::string_view label = line.substr(at, length);
        at += length;
        if (length == 0 || at == line.size() || line[at] != ':') return std::nullopt;
        return behind(label, line, at + 1);
    }
    case NAME:
        while (at < line.size() && isOfName(line[at]))
            ++at;
        if (at == 0 || at == line.size() || line[at] != ':') return std::nullopt;
        return behind(line.substr(0, at), line, at + 1);
    case BRACKET: {
        if (!line.starts_with('[')) return std::nullopt;
        const std::size_t length = digits(line, 1);
        if (length == 0 || line.substr(1 + length, 1) != "]") return std::nullopt;
        return behind(line.substr(1, length), line, length + 2);
    }
    case TAG: {
        if (!line.starts_with('[')) return std::nullopt;
        at = 1;
        const auto label = rankOfTag(line, at);
        if (!label) return std::nullopt;
        return LabelledLine{*label, line.substr(at)};
    }
    case NAMED_TAG: {
        if (!line.starts_with('[')) return std::nullopt;
        at = line.find_first_of("@[]", 1);
        if (at == std::string_view::npos || at == 1 || line[at] != '@') return std::nullopt;
        ++at;
        const auto label = rankOfTag(line, at);
        if (!label) return std::nullopt;
        return behind(*label, line, at);
    }
    case KINDS:
        break;
    }
    return std::nullopt;
}

void FormGuess::look(std::string_view line) {
    for (std::size_t kind = 0; kind < seen.size(); ++kind)
        seen[kind] += LabelForm::divide(static_cast<LabelForm::Kind>(kind), line).has_value();
}

std::optional<LabelForm::Kind> FormGuess::best() const {
    const auto most = std::max_element(seen.begin(), seen.end());
    if (*most == 0) return std::nullopt;
    return static_cast<LabelForm::Kind>(most - seen.begin());
}

LabelPattern::LabelPattern(const std::string& expression) {
    auto fresh = std::make_unique<regex_t>();
    const int problem = ::regcomp(fresh.get(), inPosix(expression).c_str(), REG_EXTENDED);
    if (problem != 0) {
        std::array<char, 256> text{};
        ::regerror(problem, fresh.get(), text.data(), text.size());
        throw std::runtime_error(text.data());
    }
    compiled.reset(fresh.release());
    if (compiled->re_nsub == 0) throw std::runtime_error("it has no group (...) for the label");
}

std::optional<LabelledLine> LabelPattern::divide(std::string_view line) const {
    std::array<regmatch_t, 2> found{};
    found[0] = {0, static_cast<regoff_t>(line.size())};
    if (::regexec(compiled.get(), line.data(), found.size(), found.data(), REG_STARTEND) != 0 ||
        found[0].rm_so != 0 || found[1].rm_so < 0 || found[1].rm_so == found[1].rm_eo)
        return std::nullopt;
    const auto begin = static_cast<std::size_t>(found[1].rm_so);
    const auto end = static_cast<std::size_t>(found[1].rm_eo);
    return LabelledLine{line.substr(begin, end - begin),
                        line.substr(static_cast<std::size_t>(found[0].rm_eo))};
}

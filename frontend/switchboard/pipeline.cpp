#include "frontend/switchboard/pipeline.h"

#include <set>

namespace {

constexpr std::size_t maxOtherNames = 16;

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

} // namespace

std::optional<Pipeline> Pipeline::parse(std::string_view line, ProgramLookup& programs) {
    while (!line.empty() && isBlank(line.back()))
        line.remove_suffix(1);
    std::set<std::string> others; // names of no programs
    char quote = '\0';
    int depth = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (c == '\\') {
            ++i;
        } else if (quote != '\0') {
            if (c == quote) quote = '\0';
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '(' || c == '[' || c == '{') {
            ++depth;
        } else if (c == ')' || c == ']' || c == '}') {
            --depth;
        } else if (c == '|' && depth <= 0 && i > 0 && isBlank(line[i - 1]) && i + 1 < line.size() &&
                   isBlank(line[i + 1])) {
            const std::string_view filter = trimmed(line.substr(i + 1));
            const std::string program(filter.substr(0, filter.find_first_of(" \t|;&<>")));
            if (program.empty() || others.contains(program)) continue;
            if (programs.isProgram(program))
                return Pipeline{std::string(trimmed(line.substr(0, i))), std::string(filter)};
            others.insert(program);
            if (others.size() == maxOtherNames) return std::nullopt;
        }
    }
    return std::nullopt;
}

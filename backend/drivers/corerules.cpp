#include "backend/drivers/corerules.h"

#include "backend/drivers/driver.h"

#include <algorithm>
#include <cctype>

namespace {

// The first word of a text without what may stand directly behind it, "x/4" and "run&" say; takes
// it off the text, and the blanks around it.
std::string_view takeWord(std::string_view& text) {
    const auto skip = [&text] {
        text.remove_prefix(std::min(text.size(), text.find_first_not_of(" \t")));
    };
    skip();
    const auto end = std::ranges::find_if(
        text, [](unsigned char c) { return std::isalnum(c) == 0 && c != '-' && c != '_'; });
    const std::string_view word(text.begin(), end);
    text.remove_prefix(word.size());
    skip();
    return word;
}

std::string sentence(std::string_view word) {
    return "'" + std::string(word) +
           "' needs a process; core files can only be looked at (where, print, stat)";
}

} // namespace

std::string CoreRules::gdbRefuses(std::string_view line) {
    static constexpr Driver::CommandName commands[] = {
        {"run", 1},
        {"start", 4},
        {"starti", 6},
        {"continue", 1},
        {"fg", 2},
        {"next", 1},
        {"nexti", 5},
        {"ni", 2},
        {"step", 1},
        {"stepi", 5},
        {"si", 2},
        {"finish", 3},
        {"until", 1},
        {"advance", 3},
        {"jump", 1},
        {"signal", 3},
        {"queue-signal", 1},
        {"kill", 1},
        {"attach", 2},
        {"checkpoint", 2},
        {"record", 3},
        {"reverse-continue", 9},
        {"reverse-next", 9},
        {"reverse-step", 9},
        {"reverse-finish", 9},
        {"reverse-nexti", 13},
        {"reverse-stepi", 13},
        {"rc", 2},
        {"rn", 2},
        {"rs", 2},
        {"rni", 3},
        {"rsi", 3},
    };
    // These start or reach one, unlike "target core" and "target exec".
    static constexpr Driver::CommandName targets[] = {
        {"native", 3}, {"remote", 3}, {"extended-remote", 3}, {"sim", 3}};
    const std::string_view word = takeWord(line);
    if (Driver::names(word, commands)) return sentence(word);
    return Driver::names(word, {{{"target", 3}}}) && Driver::names(takeWord(line), targets)
               ? sentence("target")
               : "";
}

std::string CoreRules::lldbRefuses(std::string_view line) {
    static constexpr Driver::CommandName commands[] = {
        {"run", 1},    {"continue", 1},      {"next", 1},       {"step", 1},
        {"nexti", 5},  {"stepi", 5},         {"ni", 2},         {"si", 2},
        {"finish", 3}, {"jump", 1},          {"kill", 1},       {"attach", 2},
        {"sif", 3},    {"_regexp-jump", 12}, {"gdb-remote", 2}, {"rerun", 3},
    };
    static constexpr Driver::CommandName parts[] = {
        {"continue", 1},  {"launch", 1},   {"until", 1},         {"step-over", 3}, {"step-in", 3},
        {"step-inst", 3}, {"step-out", 3}, {"step-scripted", 3}, {"signal", 2},    {"attach", 1},
        {"connect", 3},   {"kill", 1},     {"jump", 1},          {"return", 1},
    };
    const std::string_view word = takeWord(line);
    if (word != "process" && word != "thread")
        return Driver::names(word, commands) ? sentence(word) : "";
    const std::string_view part = takeWord(line);
    return Driver::names(part, parts) ? sentence(std::string(word) + " " + std::string(part)) : "";
}

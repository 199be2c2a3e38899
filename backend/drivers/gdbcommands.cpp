#include "backend/drivers/gdbcommands.h"

#include "backend/drivers/driver.h"

#include <algorithm>

namespace {

// Behind the word may stand "/r" or "&".
std::string_view wordOf(std::string_view line) {
    line.remove_prefix(std::min(line.size(), line.find_first_not_of(" \t")));
    return line.substr(0, line.find_first_of(" \t/&"));
}

bool goesOn(std::string_view word) {
    static constexpr Driver::CommandName commands[] = {
        {"run", 1},   {"start", 5}, {"starti", 6},  {"continue", 1}, {"fg", 2},
        {"nexti", 1}, {"ni", 2},    {"stepi", 1},   {"si", 2},       {"finish", 3},
        {"until", 1}, {"jump", 1},  {"advance", 3}, {"signal", 3},
    };
    return Driver::names(word, commands);
}

} // namespace

bool GdbCommands::letRun(std::string_view line) {
    static constexpr Driver::CommandName others[] = {{"call", 3}, {"source", 2}};
    const std::string_view word = wordOf(line);
    return goesOn(word) || Driver::names(word, others);
}

bool GdbCommands::leavePlace(std::string_view line) {
    static constexpr Driver::CommandName others[] = {{"kill", 1}, {"detach", 3}};
    const std::string_view word = wordOf(line);
    return goesOn(word) || Driver::names(word, others);
}

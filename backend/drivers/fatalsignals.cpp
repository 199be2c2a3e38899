#include "backend/drivers/fatalsignals.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<std::string_view, 6> fatal = {"SIGSEGV", "SIGABRT", "SIGFPE",
                                                   "SIGBUS",  "SIGILL",  "SIGSYS"};

// What stands behind a mark up to a character of these; empty: there is no such mark.
std::string_view behind(std::string_view line, std::string_view mark, const char* ends) {
    const std::size_t at = line.find(mark);
    if (at == line.npos) return "";
    line.remove_prefix(at + mark.size());
    return line.substr(0, line.find_first_of(ends));
}

} // namespace

std::string_view fatalSignalIn(std::string_view line) {
    std::string_view name;
    if (line.starts_with("Program received signal ") || line.starts_with("Thread ")) {
        // Fortran programs say "Program received signal SIGSEGV: ..." themselves.
        name = behind(line, " received signal ", ",");
    } else if (line.starts_with("* thread #")) {
        name = behind(line, "stop reason = signal ", ":");
    }
    return std::ranges::find(fatal, name) == fatal.end() ? "" : name;
}

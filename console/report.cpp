#include "console/report.h"

#include "common/wholenumber.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace {

// The descriptor; nothing when no report is wanted, or the variable names none.
std::optional<int> place() {
    const char* const text = std::getenv("VEX_CONSOLE_REPORT");
    const auto number = text ? wholeNumber<int>(text) : std::nullopt;
    return number && *number >= 0 ? number : std::nullopt;
}

} // namespace

bool Report::isWanted() { return place().has_value(); }

bool Report::inputIsOver() {
    for (;;) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        char text[4096];
        if (::poll(&input, 1, 0) != 1) return false;
        const ssize_t got = ::read(STDIN_FILENO, text, sizeof text);
        if (got <= 0) return got == 0;
        if (!std::all_of(text, text + got, [](unsigned char c) { return std::isspace(c); }))
            return false;
    }
}

void Report::tell(long refusals, long mistakes, bool complete) {
    const auto descriptor = place();
    if (!descriptor) return;
    const std::string text = std::to_string(refusals) + " " + std::to_string(mistakes) + " " +
                             (complete ? "1" : "0") + "\n";
    for (std::size_t told = 0; told < text.size();) {
        const ssize_t put = ::write(*descriptor, text.data() + told, text.size() - told);
        if (put == -1 && errno != EINTR) return;
        told += static_cast<std::size_t>(std::max(put, ssize_t{0}));
    }
}

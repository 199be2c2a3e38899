#include "console/report.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace {

const char* place() { return std::getenv("VEX_CONSOLE_REPORT"); }

} // namespace

bool Report::isWanted() { return place() != nullptr; }

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
    const std::string text = std::to_string(refusals) + " " + std::to_string(mistakes) + " " +
                             (complete ? "1" : "0") + "\n";
    (void)!::write(std::atoi(place()), text.data(), text.size());
}

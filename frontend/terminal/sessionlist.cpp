#include "frontend/terminal/sessionlist.h"

#include "frontend/session/session.h"

#include <cstdio>
#include <sstream>

namespace {

constexpr int patience = 2000; // ms for an answer

std::string row(const std::string& session, const std::string& tasks, const std::string& consoles,
                const std::string& age, const std::string& program) {
    char start[80];
    std::snprintf(start, sizeof start, "%7s  %5s  %8s  %10s  ", session.c_str(), tasks.c_str(),
                  consoles.c_str(), age.c_str());
    return start + program + "\n";
}

// Names of files may hold anything.
std::string printable(std::string text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == 127) c = '?';
    }
    return text;
}

} // namespace

std::string SessionList::age(long seconds) {
    const auto two = [](long first, const char* unit, long second, const char* smaller) {
        char text[64];
        std::snprintf(text, sizeof text, "%ld %s %02ld %s", first, unit, second, smaller);
        return std::string(text);
    };
    const long minutes = seconds / 60, hours = minutes / 60, days = hours / 24;
    if (minutes == 0) return std::to_string(seconds) + " s";
    if (hours == 0) return std::to_string(minutes) + " min";
    return days == 0 ? two(hours, "h", minutes % 60, "min") : two(days, "d", hours % 24, "h");
}

std::string SessionList::text() {
    std::string table;
    for (const int number : Session::candidates()) {
        const auto line = Session::reach(number);
        if (!line) {
            Session::removeDead(number);
            continue;
        }
        line->say("facts");
        const auto answer = line->await(patience);
        if (!answer) {
            table += row(std::to_string(number), "?", "?", "?", "(it does not answer)");
            continue;
        }
        std::istringstream facts(*answer);
        std::string tasks, consoles, program;
        long seconds = 0;
        facts >> tasks >> consoles >> seconds;
        facts.ignore(1);
        std::getline(facts, program, '\0');
        table += row(std::to_string(number), tasks, consoles, age(seconds), printable(program));
    }
    return table.empty() ? "no session runs\n"
                         : row("session", "tasks", "consoles", "age", "program") + table;
}

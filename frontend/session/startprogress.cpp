#include "frontend/session/startprogress.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr auto shortStart = std::chrono::seconds(1);
constexpr auto longStart = std::chrono::seconds(10);
constexpr auto redrawTime = std::chrono::milliseconds(200);
// Of those that are waited for.
constexpr std::size_t maxNamed = 3, maxListed = 20;

constexpr const char* wayOut = "Ctrl-C gives up";

// As the C library finds it (setlocale): the first of these variables that is set counts.
bool usesUtf8() {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* const value = std::getenv(name);
        if (!value || !*value) continue;
        const std::string_view text = value;
        return text.find("UTF-8") != text.npos || text.find("utf8") != text.npos;
    }
    return false;
}

std::size_t terminalColumns() {
    winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : 80;
}

bool isInside(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

std::size_t columnsOf(const std::string& text) {
    return text.size() - static_cast<std::size_t>(std::ranges::count_if(text, isInside));
}

// "100,000"
std::string grouped(std::size_t number) {
    const std::string digits = std::to_string(number);
    std::string text;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) text += ',';
        text += digits[i];
    }
    return text;
}

// "node1, node2, node3 and 12 more"
std::string named(const std::set<std::string>& names) {
    std::string text;
    std::size_t count = 0;
    for (const std::string& name : names) {
        if (++count > maxNamed) return text + " and " + grouped(names.size() - maxNamed) + " more";
        text += (count == 1 ? "" : ", ") + name;
    }
    return text;
}

} // namespace

std::string StartProgress::line(const Facts& facts, std::size_t columns, bool utf8) {
    const char* const point = utf8 ? " \xC2\xB7 " : " - ";
    std::string text;
    if (facts.expected > 0) text = grouped(facts.started) + " of " + grouped(facts.expected);
    if (!facts.awaited.empty()) {
        if (!text.empty()) text += point;
        text.append("waiting for ").append(named(facts.awaited));
    }
    if (facts.late) text.append(point).append(wayOut);
    while (columnsOf(text) > columns) {
        while (!text.empty() && isInside(text.back()))
            text.pop_back();
        text.pop_back();
    }
    return text;
}

StartProgress::StartProgress(EventLoop& loop, const Owner& whose)
    : owner(whose), onTerminal(::isatty(STDERR_FILENO) == 1), utf8(usesUtf8()), timer(loop) {}

StartProgress::~StartProgress() { end(); }

void StartProgress::begin() {
    start = Clock::now();
    wait();
}

void StartProgress::end() {
    timer.cancel();
    show("");
}

void StartProgress::say(const std::string& sentence) { print("vex: " + sentence + "\n"); }

void StartProgress::print(const std::string& lines) {
    if (lines.empty()) return;
    const std::string below = shown;
    show("");
    std::fputs(lines.c_str(), stderr);
    show(below);
}

void StartProgress::wait() {
    const Clock::duration time = !onTerminal     ? Clock::duration(longStart)
                                 : shown.empty() ? Clock::duration(shortStart)
                                                 : Clock::duration(redrawTime);
    timer.after(time, [this] {
        wait();
        if (!onTerminal) return list();
        // One column stays free: a full line may make the terminal begin another.
        StartProgress::Facts facts = owner.startFacts();
        facts.late = Clock::now() - start >= longStart;
        show(line(facts, terminalColumns() - 1, utf8));
    });
}

// Every terminal knows a carriage return and a blank.
void StartProgress::show(const std::string& text) {
    if (text == shown) return;
    const std::size_t before = columnsOf(shown), now = columnsOf(text);
    std::string bytes;
    bytes.append("\r").append(text);
    if (before > now) bytes.append(before - now, ' ').append("\r").append(text);
    std::fputs(bytes.c_str(), stderr);
    shown = text;
}

// Where nothing can be rewritten.
void StartProgress::list() {
    const Facts facts = owner.startFacts();
    if (facts.expected == 0)
        say("the launcher has not started a task yet; " + std::string(wayOut));
    else
        say(std::to_string(facts.started) + " of " + std::to_string(facts.expected) +
            " debuggers have started; " + wayOut);
    std::size_t hosts = 0;
    for (const std::string& host : facts.hosts ? facts.awaited : std::set<std::string>()) {
        if (++hosts > maxListed)
            return say("no answer yet from " + grouped(facts.awaited.size() - maxListed) +
                       " more hosts");
        say("no answer yet from host " + host);
    }
}

#include "console/readline.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace {

std::string_view withoutBlanks(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    return text;
}

// The completion pool, filled by both threads and read by the editor.
struct Pool {
    std::mutex mutex;
    WordPool words;
    // The cycle of generateVariable: the entry to look at next and its text.
    std::uint64_t position = 0;
    std::string pos;
};

// Made on first use, because the first words are added while other static objects are built.
Pool& pool() {
    static Pool instance;
    return instance;
}

} // namespace

namespace Readline {

Line line(1024, 200, generateVariable);

void initialize() {}

void showPrompt(const std::string& prompt) {
    std::printf("%s", prompt.c_str());
    std::fflush(stdout);
    std::fflush(stderr);
}

const char* readCommandLine(const std::string& prompt) {
    showPrompt(prompt);
    return line.read();
}

LockedPool lockPool() {
    Pool& p = pool();
    return {std::unique_lock(p.mutex), p.words};
}

void addContext(std::string_view text) {
    const std::string_view entry = withoutBlanks(text);
    if (entry.empty()) return;
    const LockedPool p = lockPool();
    p.words.add(WordPool::Word(entry));
    p.words.settle();
}

// The editor calls it as a MatchFunc, which takes the prefix by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::string generateVariable(std::string prefix, int state) {
    Pool& p = pool();
    const std::lock_guard guard(p.mutex);
    const WordPool& words = p.words;
    if (state == 0) {
        if (prefix.empty() || words.size() == 0) return "";
        p.position = words.dropped();
        p.pos = words.text(p.position);
    }
    // Entries dropped since the last call cannot be walked any more.
    const std::uint64_t end = words.dropped() + words.size();
    p.position = std::max(p.position, words.dropped());
    while (p.pos.compare(0, prefix.size(), prefix) != 0) {
        if (p.position < end) ++p.position;
        if (p.position >= end) return "";
        p.pos = words.text(p.position);
    }
    std::string found = p.pos;
    if (++p.position >= end) p.position = words.dropped();
    p.pos = words.text(p.position);
    return found;
}

} // namespace Readline

#include "console/readline.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <deque>
#include <mutex>
#include <set>
#include <string_view>

namespace {

constexpr std::size_t poolCapacity = 400;

std::string_view withoutBlanks(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())))
        text.remove_prefix(1);
    return text;
}

// The completion pool, filled by both threads and read by the editor.
struct Pool {
    std::mutex mutex;
    std::deque<std::string> contextQueue; // oldest first
    // Views into the queue's texts, which stay where they are.
    std::set<std::string_view, Readline::StringCompare> contextSet;
    // How many entries have been dropped: entry i of the queue is the (dropped + i)-th ever.
    unsigned long long dropped = 0;

    // The cycle of generateVariable: the entry to look at next and its text.
    unsigned long long position = 0;
    std::string pos;

    void add(std::string_view text) {
        const std::string_view entry = withoutBlanks(text);
        if (entry.empty() || contextSet.contains(entry)) return;
        if (contextQueue.size() == poolCapacity) {
            contextSet.erase(contextQueue.front());
            contextQueue.pop_front();
            ++dropped;
        }
        contextQueue.emplace_back(entry);
        contextSet.insert(contextQueue.back());
    }
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

void addContext(std::string_view text) { addContexts({text}); }

void addContexts(const std::vector<std::string_view>& texts) {
    Pool& p = pool();
    const std::lock_guard guard(p.mutex);
    for (const std::string_view text : texts)
        p.add(text);
}

bool addContextsIfRoom(const std::vector<std::string_view>& texts) {
    Pool& p = pool();
    const std::lock_guard guard(p.mutex);
    if (p.dropped > 0) return false;
    std::set<std::string_view> fresh;
    for (const std::string_view text : texts) {
        if (!p.contextSet.contains(withoutBlanks(text))) fresh.insert(withoutBlanks(text));
        if (p.contextQueue.size() + fresh.size() > poolCapacity) return false;
    }
    for (const std::string_view text : texts)
        p.add(text);
    return true;
}

// The editor calls it as a MatchFunc, which takes the prefix by value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
std::string generateVariable(std::string prefix, int state) {
    Pool& p = pool();
    const std::lock_guard guard(p.mutex);
    if (state == 0) {
        if (prefix.empty() || p.contextQueue.empty()) return "";
        p.position = p.dropped;
        p.pos = p.contextQueue.front();
    }
    // Entries dropped since the last call cannot be walked any more.
    std::size_t at = static_cast<std::size_t>(std::max(p.position, p.dropped) - p.dropped);
    while (p.pos.compare(0, prefix.size(), prefix) != 0) {
        if (at < p.contextQueue.size()) ++at;
        if (at >= p.contextQueue.size()) {
            p.position = p.dropped + at;
            return "";
        }
        p.pos = p.contextQueue[at];
    }
    std::string found = p.pos;
    if (++at >= p.contextQueue.size()) at = 0;
    p.position = p.dropped + at;
    p.pos = p.contextQueue[at];
    return found;
}

} // namespace Readline

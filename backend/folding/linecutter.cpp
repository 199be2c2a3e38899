#include "backend/folding/linecutter.h"

#include <algorithm>
#include <utility>

std::vector<std::string> LineCutter::feed(std::string_view text, Clock::time_point now) {
    std::vector<std::string> lines;
    std::string clean;
    if (text.find('\0') != std::string_view::npos) {
        std::copy_if(text.begin(), text.end(), std::back_inserter(clean),
                     [](char c) { return c != '\0'; });
        text = clean;
    }
    for (;;) {
        const std::size_t newline = text.find('\n');
        const std::string_view head = text.substr(0, newline);
        partial.append(head);
        if (newline == std::string_view::npos) {
            line.append(head);
            if (line.size() > maxTail) line.erase(0, line.size() - maxTail);
            break;
        }
        if (!taken || !partial.empty()) lines.push_back(std::exchange(partial, {}));
        breakLine();
        text.remove_prefix(newline + 1);
    }
    if (!partial.empty() && !began) began = now;
    return lines;
}

std::optional<std::string> LineCutter::takePartial() {
    if (partial.empty()) return std::nullopt;
    taken = true;
    began.reset();
    return std::exchange(partial, {});
}

void LineCutter::breakLine() {
    line.clear();
    taken = false;
    if (partial.empty()) began.reset();
}

#include "console/history.h"

#include <cassert>
#include <cstdio>

void History::addLine(const std::string& text) {
    if (lines.size() >= maxLines) lines.erase(lines.begin());
    lines.push_back(text);
}

void History::upLine() {
    if (!isAtTop()) --lineNum;
}

void History::downLine() {
    if (!isAtBottom()) ++lineNum;
}

const std::string& History::getLine() const {
    assert(lineNum < lines.size());
    return lines[lineNum];
}

void History::putLine(const std::string& text) {
    assert(lineNum < lines.size());
    lines[lineNum] = text;
}

void History::deleteLine() {
    lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(lineNum));
    if (lineNum == lines.size() && lineNum > 0) --lineNum;
}

bool History::search(const std::string& key, int) {
    std::size_t at = lineNum;
    for (std::size_t step = 0; step < lines.size(); ++step) {
        at = at == 0 ? lines.size() - 1 : at - 1;
        if (lines[at].find(key) != std::string::npos) {
            lineNum = at;
            return true;
        }
    }
    return false;
}

void History::dump() const {
    for (const std::string& text : lines)
        std::puts(text.c_str());
}

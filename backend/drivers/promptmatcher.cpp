#include "backend/drivers/promptmatcher.h"

#include <algorithm>
#include <utility>

// What stands behind the stem, which ends here, and how many bytes that is; 0: no mark.
std::size_t PromptMatcher::lengthAt(std::size_t at, Mark& mark) const {
    if (at == kept.size()) return 0;
    mark = kept[at] == runs ? RUNS : kept[at] == stands ? STANDS : PROMPT;
    const std::size_t end = mark == PROMPT ? at : at + 1;
    return end < kept.size() && kept[end] == last ? end + 1 - at : 0;
}

std::vector<PromptMatcher::Piece> PromptMatcher::feed(std::string_view chunk) {
    std::vector<Piece> pieces;
    kept.append(chunk);
    std::size_t from = 0;
    for (std::size_t at = 0; (at = kept.find(stem, at)) != std::string::npos;) {
        Mark mark = NONE;
        const std::size_t behind = lengthAt(at + stem.size(), mark);
        if (behind == 0) {
            ++at;
            continue;
        }
        pieces.push_back({kept.substr(from, at - from), mark});
        at = from = at + stem.size() + behind;
    }
    // Keep the longest end that is a beginning of a mark.
    std::size_t end = std::min(kept.size() - from, stem.size() + 1);
    const auto begins = [this](std::string_view text) {
        if (text.size() <= stem.size()) return stem.starts_with(text);
        return text.starts_with(stem) && (text.back() == runs || text.back() == stands);
    };
    while (end > 0 && !begins(std::string_view(kept).substr(kept.size() - end)))
        --end;
    const std::size_t clear = kept.size() - end;
    if (clear > from) pieces.push_back({kept.substr(from, clear - from), NONE});
    kept.erase(0, clear);
    return pieces;
}

std::string PromptMatcher::rest() { return std::exchange(kept, {}); }

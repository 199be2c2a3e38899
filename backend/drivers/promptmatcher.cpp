#include "backend/drivers/promptmatcher.h"

#include <algorithm>
#include <utility>

std::vector<PromptMatcher::Piece> PromptMatcher::feed(std::string_view chunk) {
    std::vector<Piece> pieces;
    kept.append(chunk);
    std::size_t from = 0;
    for (std::size_t at; (at = kept.find(prompt, from)) != std::string::npos;) {
        pieces.push_back({kept.substr(from, at - from), true});
        from = at + prompt.size();
    }
    // Keep the longest end that is a beginning of the prompt.
    std::size_t end = std::min(kept.size() - from, prompt.size() - 1);
    while (end > 0 && prompt.compare(0, end, kept, kept.size() - end, end) != 0)
        --end;
    const std::size_t clear = kept.size() - end;
    if (clear > from) pieces.push_back({kept.substr(from, clear - from), false});
    kept.erase(0, clear);
    return pieces;
}

std::string PromptMatcher::rest() { return std::exchange(kept, {}); }

#include "backend/folding/linecutter.h"

#include "backend/folding/safetext.h"

#include <algorithm>
#include <utility>

namespace {

// How many bytes at the end belong to what follows: the beginning of a character, and a return,
// which may be part of the line's end.
std::size_t seam(const std::string& text) {
    return text.ends_with('\r') ? 1 : SafeText::unfinished(text);
}

} // namespace

std::vector<LineCutter::Piece> LineCutter::feed(std::string_view text, Clock::time_point now) {
    std::vector<Piece> pieces;
    for (std::size_t newline; (newline = text.find('\n')) != std::string_view::npos;) {
        keep(text.substr(0, newline), pieces);
        text.remove_prefix(newline + 1);
        pieces.push_back({std::exchange(partial, {}), taken, true});
        line.clear();
        taken = false;
        began.reset();
    }
    if (text.empty()) return pieces;
    keep(text, pieces);
    line.append(text.substr(text.size() - std::min(text.size(), maxTail)));
    if (line.size() > maxTail) line.erase(0, line.size() - maxTail);
    if (!partial.empty() && !began) began = now;
    grown = now;
    return pieces;
}

// Adds text without a newline to the unfinished line.
void LineCutter::keep(std::string_view text, std::vector<Piece>& pieces) {
    while (partial.size() + text.size() > maxLine) {
        const std::size_t fits = maxLine - partial.size();
        partial.append(text.substr(0, fits));
        text.remove_prefix(fits);
        pieces.push_back(take(partial.size() - seam(partial)));
    }
    partial.append(text);
}

LineCutter::Piece LineCutter::take(std::size_t length) {
    std::string rest = partial.substr(length);
    partial.resize(length);
    Piece piece{std::exchange(partial, std::move(rest)), std::exchange(taken, true), false};
    began.reset();
    return piece;
}

std::optional<LineCutter::Piece> LineCutter::takePartial() {
    const std::size_t length = partial.size() - seam(partial);
    // What is left waits for what it belongs to.
    began.reset();
    if (length == 0) return std::nullopt;
    return take(length);
}

std::optional<LineCutter::Piece> LineCutter::takeRest() {
    std::optional<Piece> piece;
    if (!partial.empty()) piece = take(partial.size());
    line.clear();
    taken = false;
    began.reset();
    return piece;
}

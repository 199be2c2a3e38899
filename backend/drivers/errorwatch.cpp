#include "backend/drivers/errorwatch.h"

#include "backend/os/text.h"

#include <algorithm>
#include <utility>

std::string ErrorWatch::pass(int client, std::string_view text, bool counts) {
    Seen& each = seen(client);
    std::string plain;
    for (const auto& piece : each.matcher.feed(text)) {
        plain += piece.text;
        // The first one only says that there are marks.
        if (piece.mark == PromptMatcher::PROMPT && ++each.marks > 1 && counts) count(client);
    }
    if (driver.marksErrors()) return plain;
    for (long lines = errorLines(each, plain); counts && lines > 0; --lines)
        count(client);
    return plain;
}

// How many lines that tell an error end in the text. A line shows by its beginning what it is.
long ErrorWatch::errorLines(Seen& each, std::string_view text) const {
    constexpr std::size_t enough = 256;
    long found = 0;
    for (;;) {
        const std::size_t end = text.find('\n');
        each.lineBegin.append(text.substr(0, std::min(end, enough - each.lineBegin.size())));
        if (end == std::string_view::npos) return found;
        found += driver.reportsError(each.lineBegin);
        each.lineBegin.clear();
        text.remove_prefix(end + 1);
    }
}

bool ErrorWatch::canTell(int client) { return !driver.marksErrors() || seen(client).marks > 0; }

void ErrorWatch::typed(int client, const std::string& line) {
    if (!line.empty()) seen(client).lastTyped = line;
}

void ErrorWatch::ended(int client) {
    const std::string word = Text::firstWord(seen(client).lastTyped);
    if (word != "q" && word != "quit" && word != "exit") count(client);
}

void ErrorWatch::count(int client) {
    ++errors;
    culprits.insert(client);
}

void ErrorWatch::add(int more, const ClientSet& whose) {
    errors += more;
    culprits.insert(whose);
}

std::pair<int, ClientSet> ErrorWatch::take() {
    return {static_cast<int>(std::exchange(errors, 0)), std::exchange(culprits, {})};
}

std::optional<std::string> ErrorWatch::verdict() const {
    std::string text;
    if (errors > 0)
        text = (errors == 1 ? "1 error was" : std::to_string(errors) + " errors were") +
               std::string(" reported by the debuggers of ") + Text::list(culprits);
    if (!scriptsFailed.empty())
        text += (text.empty() ? "" : "; ") + ("scripts failed of " + Text::list(scriptsFailed));
    return text.empty() ? std::nullopt : std::optional(text);
}

#include "backend/drivers/errorwatch.h"

#include "backend/os/text.h"

#include <utility>

std::string ErrorWatch::pass(int client, std::string_view text, bool counts) {
    Seen& each = seen(client);
    std::string plain;
    for (const auto& piece : each.matcher.feed(text)) {
        plain += piece.text;
        // The first one only says that there are marks.
        if (piece.prompt && ++each.marks > 1 && counts) count(client);
    }
    each.partialLine += plain;
    std::size_t from = 0;
    for (std::size_t end; (end = each.partialLine.find('\n', from)) != std::string::npos;
         from = end + 1) {
        if (counts &&
            driver.reportsError(std::string_view(each.partialLine).substr(from, end - from)))
            count(client);
    }
    each.partialLine.erase(0, from);
    return plain;
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

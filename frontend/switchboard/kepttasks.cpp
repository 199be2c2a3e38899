#include "frontend/switchboard/kepttasks.h"

#include "backend/os/text.h"

#include <algorithm>
#include <utility>

void KeptTasks::typed(const ClientSet& clients, const std::string& line, Clock::time_point now) {
    if (standing.empty()) return;
    if (driver.leavesPlace(line)) leave(clients);
    if (!due && !standing.empty() && driver.letsRun(line)) due = now + Wait::abort;
}

void KeptTasks::leave(const ClientSet& clients) {
    for (auto& [at, whose] : standing)
        whose.erase(clients);
    std::erase_if(standing, [](const auto& each) { return each.second.empty(); });
}

// For a kept task: it runs while that is carried out. A kept one runs for a call at most, which
// takes as long as it takes.
bool KeptTasks::mayWait(int client) const {
    if (std::ranges::any_of(standing,
                            [client](const auto& each) { return each.second.contains(client); }))
        return false;
    const Request* const request = dispatcher.requestOf(client);
    return (request && request->sampling) || driver.letsRun(dispatcher.lineOf(client));
}

void KeptTasks::said(const ClientSet& clients, const std::vector<std::string>& lines,
                     Clock::time_point now) {
    if (!begun) return;
    for (const std::string& line : lines) {
        if (!standing.empty() && driver.endsTask(line)) leave(clients);
        const std::string_view at = driver.keptAt(line);
        if (at.empty()) continue;
        kept[at].insert(clients);
        standing[at].insert(clients);
        if (!due) due = now + Wait::abort;
    }
}

void KeptTasks::tick(const ClientSet& clients, Clock::time_point now) {
    if (!due || *due > now) return;
    due.reset();
    std::map<int, ClientSet> running; // by console
    for (const int id : clients) {
        if (mayWait(id)) running[dispatcher.consoleOf(id)].insert(id);
    }
    std::map<int, std::map<std::string_view, ClientSet>> causes; // by console
    for (const auto& [at, whose] : standing) {
        for (const int id : whose.intersection(clients))
            causes[dispatcher.consoleOf(id)][at].insert(id);
    }
    for (const auto& [console, places] : causes) {
        const auto found = running.find(console);
        if (console == 0 || found == running.end()) continue;
        std::string why;
        for (const auto& [at, whose] : places)
            why += (why.empty() ? "" : ", ") + Text::list(whose) +
                   (whose.size() == 1 ? " is" : " are") + " kept at " + std::string(at);
        dispatcher.announce(console, found->second,
                            "interrupted, so that the script goes on: " + why);
        dispatcher.interrupt(found->second, now);
    }
}

#include "frontend/switchboard/kepttasks.h"

#include "backend/os/text.h"

#include <algorithm>
#include <map>
#include <utility>

void KeptTasks::said(const ClientSet& clients, const std::vector<std::string>& lines,
                     Clock::time_point now) {
    if (!begun || std::ranges::none_of(
                      lines, [this](const std::string& line) { return driver.showsAbort(line); }))
        return;
    kept.insert(clients);
    fresh.insert(clients);
    if (!due) due = now + Wait::abort;
}

void KeptTasks::tick(const ClientSet& clients, Clock::time_point now) {
    if (!due || *due > now) return;
    due.reset();
    std::map<int, ClientSet> running; // by console
    for (const int id : clients) {
        if (const Request* const request = dispatcher.requestOf(id))
            running[request->console].insert(id);
    }
    std::map<int, ClientSet> causes;
    for (const int id : std::exchange(fresh, {}))
        causes[dispatcher.consoleOf(id)].insert(id);
    for (const auto& [console, whose] : causes) {
        const auto found = running.find(console);
        if (console == 0 || found == running.end()) continue;
        dispatcher.announce(console, found->second,
                            "interrupted, so that the script goes on: " + Text::list(whose) +
                                (whose.size() == 1 ? " is" : " are") + " kept at MPI_Abort");
        dispatcher.interrupt(found->second, now);
    }
}

#include "frontend/switchboard/crashedtasks.h"

#include "backend/drivers/fatalsignals.h"
#include "backend/os/text.h"

void CrashedTasks::typed(const ClientSet& clients, const std::string& line, Clock::time_point now) {
    if (standing.empty()) return;
    if (driver.leavesPlace(line)) leave(clients);
    if (!due && !standing.empty() && driver.letsRun(line)) due = now + Wait::crash;
}

void CrashedTasks::leave(const ClientSet& clients) {
    for (auto& [signal, whose] : standing)
        whose.erase(clients);
    std::erase_if(standing, [](const auto& each) { return each.second.empty(); });
}

void CrashedTasks::said(const ClientSet& clients, const std::vector<std::string>& lines,
                        Clock::time_point now) {
    if (!begun) return;
    for (const std::string& line : lines) {
        if (!standing.empty() && driver.endsTask(line)) leave(clients);
        const std::string_view signal = fatalSignalIn(line);
        if (signal.empty()) continue;
        standing[std::string(signal)].insert(clients);
        if (!due) due = now + Wait::crash;
    }
}

void CrashedTasks::tick(const ClientSet& clients, Clock::time_point now) {
    if (!due || *due > now) return;
    due.reset();
    std::map<int, ClientSet> running, crashed; // by console
    for (const int id : clients) {
        const Request* const request = dispatcher.requestOf(id);
        if (request && driver.letsRun(dispatcher.lineOf(id)) && !told.contains(request->number))
            running[request->console].insert(id);
    }
    for (const auto& [signal, whose] : standing) {
        for (const int id : whose.intersection(clients)) {
            // Its debugger may prompt late.
            if (dispatcher.requestOf(id)) {
                running[dispatcher.consoleOf(id)].erase(id);
                due = now + Wait::crash;
            } else {
                crashed[dispatcher.consoleOf(id)].insert(id);
            }
        }
    }
    for (const auto& [console, whose] : crashed) {
        const auto found = running.find(console);
        if (console != 0 && found != running.end() && !found->second.empty())
            tell(console, whose, found->second);
    }
}

void CrashedTasks::tell(int console, const ClientSet& crashed, const ClientSet& running) {
    for (const int id : running)
        told.insert(dispatcher.requestOf(id)->number);
    std::string why;
    for (const auto& [signal, clients] : standing) {
        const ClientSet whose = clients.intersection(crashed);
        if (whose.empty()) continue;
        why += (why.empty() ? "" : ", ") + Text::list(whose) + " crashed with " + signal;
    }
    dispatcher.announce(console, running,
                        "the script waits for these, and " + why +
                            ": if they wait for it, vex interrupt, after vex --join N, lets the "
                            "script go on");
}

#include "frontend/switchboard/stoppers.h"

#include "backend/folding/folder.h"
#include "backend/folding/safetext.h"

#include <algorithm>
#include <utility>

bool Stoppers::stop(const Request& request, Clock::time_point now) {
    std::map<std::pair<int, std::string>, ClientSet> running; // by console and command
    for (const int id : request.members) {
        const Request* const its = dispatcher.requestOf(id);
        if (its) running[{its->console, its->text}].insert(id);
    }
    Folder rows;
    ClientSet others;
    for (const auto& [whose, clients] : running) {
        const auto& [console, command] = whose;
        const bool own = console == request.console;
        rows.addRow(clients,
                    SafeText::of((own ? "leaves '" : "interrupts '") + command + "' of " +
                                 (own            ? "this console"
                                  : console == 0 ? "a console that has left"
                                                 : names.describeConsole(console))),
                    now);
        if (own) continue;
        others.insert(clients);
        if (console != 0) stopping.push_back({console, clients, now + Wait::interrupt});
    }
    if (others.empty()) rows.addRow(request.members, "nothing of other consoles runs", now);
    outlet.toConsole(request.console, Folder::record(rows.take(), request.console, request.text));
    if (others.empty()) return false;
    waiting[request.console] = {request.text, others, now + Wait::interrupt};
    dispatcher.interrupt(others, now);
    return true;
}

std::vector<int> Stoppers::stopped(const ClientSet& clients) {
    std::vector<int> free;
    for (auto& [console, wanted] : waiting) {
        wanted.clients.erase(clients);
        if (wanted.clients.empty()) free.push_back(console);
    }
    for (const int console : free)
        forget(console);
    return free;
}

bool Stoppers::frees(int console, const ClientSet& clients) {
    bool any = false;
    for (Stopping& each : stopping) {
        if (each.owner != console || !each.clients.intersects(clients)) continue;
        any = true;
        each.clients.erase(clients);
    }
    std::erase_if(stopping, [](const Stopping& each) { return each.clients.empty(); });
    return any && std::ranges::find(stopping, console, &Stopping::owner) == stopping.end();
}

std::vector<int> Stoppers::takeDue(Clock::time_point now) {
    std::vector<int> due;
    for (const auto& [console, wanted] : waiting) {
        if (wanted.until > now) continue;
        due.push_back(console);
        dispatcher.say(console, wanted.command, wanted.clients, "has not stopped yet");
    }
    // Whenever those stop, that frees nobody before the rest of his command.
    std::erase_if(stopping, [now](const Stopping& each) { return each.until <= now; });
    for (const int console : due)
        forget(console);
    return due;
}

std::optional<Clock::time_point> Stoppers::deadline() const {
    std::optional<Clock::time_point> next;
    for (const auto& [console, wanted] : waiting)
        next = next ? std::min(*next, wanted.until) : wanted.until;
    for (const Stopping& each : stopping)
        next = next ? std::min(*next, each.until) : each.until;
    return next;
}

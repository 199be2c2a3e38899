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
        if (console != 0) stopping[console].insert(clients);
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
    const auto its = stopping.find(console);
    if (its == stopping.end() || !its->second.intersects(clients)) return false;
    its->second.erase(clients);
    if (!its->second.empty()) return false;
    stopping.erase(its);
    return true;
}

std::vector<int> Stoppers::takeDue(Clock::time_point now) {
    std::vector<int> due;
    for (const auto& [console, wanted] : waiting) {
        if (wanted.until > now) continue;
        due.push_back(console);
        dispatcher.say(console, wanted.command, wanted.clients, "has not stopped yet");
        // Whenever it stops, that frees nobody before the rest of his command.
        for (auto& [owner, clients] : stopping)
            clients.erase(wanted.clients);
    }
    std::erase_if(stopping, [](const auto& each) { return each.second.empty(); });
    for (const int console : due)
        forget(console);
    return due;
}

std::optional<Clock::time_point> Stoppers::deadline() const {
    std::optional<Clock::time_point> next;
    for (const auto& [console, wanted] : waiting)
        next = next ? std::min(*next, wanted.until) : wanted.until;
    return next;
}

#include "frontend/switchboard/requests.h"

#include <algorithm>
#include <utility>
#include <vector>

void Requests::consoleJoined(int console) {
    Request own;
    own.console = console;
    idle[console] = add(std::move(own)).number;
}

void Requests::consoleLeft(int console) {
    forget(requests.at(idle.at(console)));
    idle.erase(console);
    for (auto& [number, request] : requests) {
        if (request.console == console) request.console = 0;
    }
}

Request& Requests::add(Request request) {
    request.number = ++lastNumber;
    Request& placed = requests.emplace(request.number, std::move(request)).first->second;
    arm(placed);
    return placed;
}

void Requests::forget(const Request& request) {
    if (request.armed) deadlines.erase({*request.armed, request.number});
    requests.erase(requests.find(request.number));
}

Request* Requests::find(int number) {
    const auto at = requests.find(number);
    return at == requests.end() ? nullptr : &at->second;
}

Request& Requests::idleOf(int console) {
    auto owner = idle.find(console);
    if (owner == idle.end()) owner = idle.begin();
    return requests.at(owner->second);
}

// --- records

void Requests::broadcast(const Request& request, Folder::Lines lines) const {
    if (lines.empty() || idle.empty()) return;
    std::vector<int> consoles;
    for (const auto& [console, number] : idle)
        consoles.push_back(console);
    outlet.toConsoles(consoles, Folder::record(std::move(lines), request.console, request.text));
}

void Requests::flush(Request& request) { broadcast(request, request.gathered.take()); }

void Requests::flushIdle() {
    for (const auto& [console, number] : idle)
        flush(requests.at(number));
}

void Requests::flushAll(int console) {
    for (auto& [number, request] : requests) {
        if (request.console == console) flush(request);
    }
}

void Requests::flushReady(Request& request) {
    if (request.instant() || request.gathered.full()) flush(request);
    arm(request);
}

void Requests::flushDue(Request& request, Clock::time_point now) {
    const auto due = request.gathered.due();
    if (due && *due <= now) broadcast(request, request.gathered.takeDue(now));
}

void Requests::continueIdle(const Request& request) {
    const auto owner = idle.find(request.console);
    if (owner == idle.end()) return;
    Request& own = requests.at(owner->second);
    flush(own);
    own.gathered = Folder(Wait::fold, std::max(own.gathered.highest(), request.gathered.highest()));
}

// --- time

void Requests::arm(Request& request) {
    std::optional<Clock::time_point> next = request.gathered.due();
    for (const auto& other : {request.overdue, request.naming, request.sampleDue})
        if (other && (!next || *other < *next)) next = other;
    // One that has moved on is looked at once for nothing.
    if (!next || (request.armed && *request.armed <= *next)) return;
    disarm(request);
    request.armed = next;
    deadlines.emplace(*next, request.number);
}

void Requests::disarm(Request& request) {
    if (request.armed) deadlines.erase({*request.armed, request.number});
    request.armed.reset();
}

std::optional<Clock::time_point> Requests::deadline() const {
    return deadlines.empty() ? std::nullopt : std::optional(deadlines.begin()->first);
}

Request* Requests::due(Clock::time_point now) {
    if (deadlines.empty() || deadlines.begin()->first > now) return nullptr;
    Request& request = requests.at(deadlines.begin()->second);
    disarm(request);
    return &request;
}

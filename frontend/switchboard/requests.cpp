#include "frontend/switchboard/requests.h"

#include <algorithm>

namespace {

// Bytes that are gathered while lines wait for the same from slower clients.
constexpr std::size_t maxGathered = 16 * Request::maxRecord;

} // namespace

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

void Requests::broadcast(const std::optional<Data>& record) const {
    if (!record) return;
    for (const auto& [console, number] : idle)
        outlet.toConsole(console, *record);
}

void Requests::flush(Request& request) {
    broadcast(request.gathered.take(request.console, request.text));
}

void Requests::flushIdle() {
    for (const auto& [console, number] : idle)
        flush(requests.at(number));
}

void Requests::flushAll(int console) {
    for (auto& [number, request] : requests) {
        if (request.console == console) flush(request);
    }
}

void Requests::flushLarge(Request& request) {
    const std::size_t size = request.gathered.size();
    if (request.instant() || size > maxGathered ||
        (request.waiting.empty() && size > Request::maxRecord)) {
        flush(request);
    } else if (size > request.limit) {
        request.loud = true;
        broadcast(request.gathered.takePart(request.console, request.text, request.commonLines(),
                                            Clock::time_point::min()));
        if (const auto oldest = request.gathered.oldest()) {
            request.due = *oldest + Wait::window;
            arm(request);
        }
    } else {
        return;
    }
    request.limit = std::max(Request::maxRecord, 2 * request.gathered.size());
}

void Requests::flushDue(Request& request, Clock::time_point now) {
    if (request.loud)
        broadcast(request.gathered.takePart(request.console, request.text, request.commonLines(),
                                            now - Wait::window / 2));
    else
        flush(request);
    request.due.reset();
    if (const auto oldest = request.gathered.oldest()) request.due = *oldest + Wait::window;
}

// --- time

void Requests::awaitWindow(Request& request, Clock::time_point since) {
    const Clock::time_point until = since + Wait::window;
    if (request.due && *request.due <= until) return;
    request.due = until;
    arm(request);
}

void Requests::arm(Request& request) {
    std::optional<Clock::time_point> next = request.due;
    if (request.overdue && (!next || *request.overdue < *next)) next = request.overdue;
    if (next == request.armed) return;
    if (request.armed) deadlines.erase({*request.armed, request.number});
    request.armed = next;
    if (next) deadlines.emplace(*next, request.number);
}

std::optional<Clock::time_point> Requests::deadline() const {
    return deadlines.empty() ? std::nullopt : std::optional(deadlines.begin()->first);
}

Request* Requests::due(Clock::time_point now) {
    if (deadlines.empty() || deadlines.begin()->first > now) return nullptr;
    return &requests.at(deadlines.begin()->second);
}

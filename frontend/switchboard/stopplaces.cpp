#include "frontend/switchboard/stopplaces.h"

#include "backend/drivers/libcsources.h"
#include "backend/folding/userstack.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <utility>

namespace {

bool hasSource(const Driver::StackLine& call) {
    return call.kind == Driver::StackLine::CALL && call.library.empty() && !call.place.empty();
}

std::string_view functionOf(std::string_view place) { return place.substr(0, place.find(" (")); }

// Calls of stacks as StackTree has them are "search", "search at ring.cpp:7", "search (ring.py:7)".
std::string placeOf(std::string call) {
    constexpr std::string_view before = " at ";
    const std::size_t at = call.rfind(before);
    return at == call.npos ? call : call.replace(at, before.size(), " (") + ")";
}

bool beginsMainThread(std::string_view call) {
    const std::string_view function = functionOf(call);
    return function == "main" || function == "MAIN__" || function == "<module>";
}

} // namespace

void StopPlaces::leave(const ClientSet& clients) {
    for (auto each = places.begin(); each != places.end();) {
        each->second.erase(clients);
        each = each->second.empty() ? places.erase(each) : std::next(each);
    }
    inLibrary.erase(clients);
}

void StopPlaces::put(const std::string& place, const ClientSet& clients) {
    if (clients.empty()) return;
    leave(clients);
    places[place].insert(clients);
}

void StopPlaces::typed(const ClientSet& clients, const std::string& line) {
    const bool leaves = driver.leavesPlace(line);
    if (leaves) kept.erase(clients);
    // Until they stop again, it is not known where.
    if (leaves || driver.letsRun(line) || line == driver.resumeCommand()) leave(clients);
}

void StopPlaces::said(const ClientSet& clients, const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        if (driver.endsTask(line)) kept.erase(clients);
        if (!driver.keptAt(line).empty()) kept.insert(clients);
        const Driver::StackLine stop = driver.parseStop(line);
        const bool isStop = stop.kind == Driver::StackLine::CALL && !stop.place.empty();
        const bool isStack = line.starts_with('#');
        if (!isStop && !isStack) continue;
        const Driver::StackLine call = isStop ? stop : driver.parseStackLine(line);
        if (hasSource(call) && UserStack::isOfProgram(call) && !isInLibcSources(line)) {
            put(call.function + " (" + call.place + ")",
                isStop ? clients : clients.intersection(inLibrary));
        } else if (isStop || line.starts_with("#0 ")) {
            // A stack may be asked for again when its place is known.
            if (!isStack) leave(clients);
            inLibrary.insert(clients);
        }
    }
}

void StopPlaces::stacks(const StackTree& tree) {
    const std::vector<StackTree::Call> calls = tree.outline().calls;
    std::map<std::string, ClientSet> found, others;
    ClientSet settled, seen, several;
    std::vector<const StackTree::Call*> path;
    for (std::size_t i = 0; i < calls.size(); ++i) {
        path.resize(calls[i].depth);
        path.push_back(&calls[i]);
        // Those whose stacks end here.
        ClientSet ending = calls[i].clients;
        for (std::size_t next = i + 1; next < calls.size() && calls[next].depth > calls[i].depth;
             ++next)
            if (calls[next].depth == calls[i].depth + 1) ending.erase(calls[next].clients);
        const auto own =
            std::ranges::find(path.rbegin(), path.rend(), false, &StackTree::Call::isForeign);
        if (ending.empty() || own == path.rend()) continue;
        const std::string place = placeOf((*own)->text);
        if (beginsMainThread(placeOf(path[0]->text))) {
            found[place].insert(ending);
            settled.insert(ending);
            continue;
        }
        several.insert(ending.intersection(seen));
        seen.insert(ending);
        others[place].insert(ending);
    }
    // Without a main, only where there is no other thread.
    several.insert(settled);
    for (auto& [place, clients] : others) {
        clients.erase(several);
        found[place].insert(clients);
    }
    for (auto& [place, clients] : found) {
        // What a debugger has said names the line, too.
        for (const auto& [known, there] : places)
            if (functionOf(known) == functionOf(place)) clients.erase(there);
        put(place, clients);
        // A stack of the debugger's may still tell the line.
        if (functionOf(place) == place) inLibrary.insert(clients);
    }
}

std::string StopPlaces::of(int client) const {
    for (const auto& [place, clients] : places) {
        if (clients.contains(client)) return place;
    }
    return "";
}

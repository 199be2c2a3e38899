#include "frontend/switchboard/stopplaces.h"

#include <iterator>

void StopPlaces::leave(const ClientSet& clients) {
    for (auto each = places.begin(); each != places.end();) {
        each->second.erase(clients);
        each = each->second.empty() ? places.erase(each) : std::next(each);
    }
}

void StopPlaces::said(const ClientSet& clients, const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        const Driver::StackLine stop = driver.parseStop(line);
        if (stop.kind != Driver::StackLine::CALL || stop.place.empty()) continue;
        leave(clients);
        places[stop.function + " (" + stop.place + ")"].insert(clients);
    }
}

std::string StopPlaces::of(int client) const {
    for (const auto& [place, clients] : places) {
        if (clients.contains(client)) return place;
    }
    return "";
}

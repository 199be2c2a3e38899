#include "frontend/launch/strangers.h"

#include <algorithm>
#include <utility>

Strangers::Number Strangers::come(const std::string& source) {
    sources[source].silent.insert(++last);
    sourceOf.emplace(last, source);
    remote += !source.empty();
    return last;
}

void Strangers::spoke(Number stranger) {
    Source& source = sources.at(sourceOf.at(stranger));
    if (source.silent.erase(stranger) > 0) source.others.insert(stranger);
}

void Strangers::leave(Number stranger) {
    const auto at = sourceOf.find(stranger);
    if (at == sourceOf.end()) return;
    const auto source = sources.find(at->second);
    source->second.silent.erase(stranger);
    source->second.others.erase(stranger);
    remote -= !at->second.empty();
    if (source->second.size() == 0) sources.erase(source);
    sourceOf.erase(at);
}

std::optional<Strangers::Number> Strangers::surplus() const {
    // Only the source of who came last has grown.
    const auto newest = sourceOf.find(last);
    if (newest == sourceOf.end()) return std::nullopt;
    const Source& source = sources.at(newest->second);
    const bool local = newest->second.empty();
    if (local ? source.size() > room.local : source.silent.size() > room.silent)
        return source.first(last);
    return remote > room.remote ? next() : std::nullopt;
}

std::optional<Strangers::Number> Strangers::next() const {
    const auto rank = [this](const auto& each) {
        return each.first.empty() ? std::pair<std::size_t, std::size_t>()
                                  : std::pair(each.second.silentBefore(last), each.second.size());
    };
    const auto most = std::ranges::max_element(sources, {}, rank);
    if (most == sources.end() || most->first.empty()) return std::nullopt;
    return most->second.first(last);
}

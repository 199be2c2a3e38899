#include "report/transcript.h"

#include <map>
#include <utility>

void Transcript::add(const ClientSet& clients, std::string line) {
    if (clients.empty()) return;
    const auto text = std::make_shared<const std::string>(std::move(line));
    if (lines.size() <= static_cast<std::size_t>(clients.back()))
        lines.resize(static_cast<std::size_t>(clients.back()) + 1);
    for (const int id : clients) {
        auto& own = lines[static_cast<std::size_t>(id)];
        if (bound != 0 && own.size() == bound) own.erase(own.begin());
        own.push_back(text);
    }
}

void Transcript::add(const std::vector<Row>& rows) {
    for (const Row& row : rows)
        add(row.clients, row.text);
}

void Transcript::dropBlank(int client) {
    const auto at = static_cast<std::size_t>(client);
    if (at < lines.size() && !lines[at].empty() && lines[at].back()->empty()) lines[at].pop_back();
}

void Transcript::forget(int client) {
    if (static_cast<std::size_t>(client) < lines.size())
        lines[static_cast<std::size_t>(client)].clear();
}

std::vector<std::string_view> Transcript::of(int client) const {
    std::vector<std::string_view> found;
    if (static_cast<std::size_t>(client) >= lines.size()) return found;
    for (const auto& line : lines[static_cast<std::size_t>(client)])
        found.emplace_back(*line);
    return found;
}

std::vector<Transcript::Part> Transcript::parts() const {
    std::map<std::vector<std::string_view>, std::size_t> known;
    std::vector<Part> found;
    for (std::size_t id = 0; id < lines.size(); ++id) {
        if (lines[id].empty()) continue;
        auto own = of(static_cast<int>(id));
        const auto [at, fresh] = known.try_emplace(own, found.size());
        if (fresh) found.push_back({{}, {own.begin(), own.end()}});
        found[at->second].clients.insert(static_cast<int>(id));
    }
    return found;
}

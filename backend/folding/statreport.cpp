#include "backend/folding/statreport.h"

#include "backend/os/text.h"

#include <iterator>
#include <sstream>
#include <utility>

namespace {

std::string listed(const ClientSet& clients) {
    return clients.empty() ? "none" : Text::list(clients);
}

} // namespace

// Behind the place of these clients.
std::string StatReport::movesOf(const ClientSet& clients) const {
    const ClientSet moved = clients.intersection(moves.moved);
    const ClientSet never = clients.intersection(moves.never);
    if (moved == clients) return " · moved";
    if (never == clients) return " · never moved";
    return (moved.empty() ? "" : " · moved: " + Text::list(moved)) +
           (never.empty() ? "" : " · never: " + Text::list(never));
}

std::vector<StackTree::RowGroup> StatReport::placeRows() const {
    std::vector<StackTree::RowGroup> groups = stacks.places();
    if (moves.samples == 0) return groups;
    for (auto& group : groups) {
        for (auto& row : group)
            row.text += movesOf(row.clients);
    }
    ClientSet ran = moves.moved;
    ran.insert(moves.never);
    std::ostringstream summary;
    summary << "moved: " << listed(moves.moved) << " · never: " << listed(moves.never) << " · "
            << moves.samples << " samples " << static_cast<double>(moves.apart.count()) / 1000
            << " s apart";
    if (!ran.empty()) groups.push_back({{summary.str(), ran}});
    for (const auto& [reason, clients] : moves.still)
        groups.push_back({{"not made to run: " + reason, clients}});
    return groups;
}

std::vector<StackTree::RowGroup> StatReport::rows() const {
    std::vector<StackTree::RowGroup> groups = placeRows();
    const auto append = [&groups](std::vector<StackTree::RowGroup> more) {
        groups.insert(groups.end(), std::move_iterator(more.begin()),
                      std::move_iterator(more.end()));
    };
    if (!chosen.innermostOnly) append(stacks.tree());
    append(stacks.helperThreads());
    groups.insert(groups.end(), ready.begin(), ready.end());
    return groups;
}

std::string StatReport::text() {
    std::string all;
    for (const auto& group : rows()) {
        for (const auto& row : group) {
            const std::string line = Text::list(row.clients) + " | " + row.text;
            all += line + "\n";
            fed.emplace(line, row);
        }
    }
    return all;
}

const StackTree::Row* StatReport::find(const std::string& line) const {
    const auto row = fed.find(line);
    return row == fed.end() ? nullptr : &row->second;
}

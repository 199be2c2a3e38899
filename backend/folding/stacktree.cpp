#include "backend/folding/stacktree.h"

#include "backend/folding/userstack.h"

#include <algorithm>
#include <cstddef>

namespace {

constexpr const char* calledBy = ", called by ";

void count(auto& node, int client) {
    node.clients.insert(client);
    ++node.threads;
}

} // namespace

void StackTree::add(int client, const std::vector<Frame>& calls) {
    if (calls.empty()) return;
    Node* node = &root;
    // A debugger may print more than it was asked for.
    const std::size_t over = calls.size() - std::min<std::size_t>(calls.size(), maxCalls);
    for (auto call = calls.rbegin() + static_cast<std::ptrdiff_t>(over); call != calls.rend();
         ++call) {
        node = &node->calls[call->text];
        node->isForeign = node->isForeign || call->isForeign;
        count(*node, client);
    }
    // In code without names, the first caller that has a name says most.
    const auto named = std::find_if(calls.begin() + 1, calls.end(),
                                    [](const Frame& call) { return !call.text.starts_with("??"); });
    const auto caller = named == calls.end() ? calls.begin() + 1 : named;
    count(
        innermost[caller == calls.end() ? calls[0].text : calls[0].text + calledBy + caller->text],
        client);
}

StackTree::StackTree(const Outline& outline) {
    std::vector<Node*> path{&root};
    for (const Call& call : outline.calls) {
        path.resize(call.depth + 1);
        Node& node = path.back()->calls[call.text];
        node.clients = call.clients;
        node.threads = call.threads;
        node.isForeign = call.isForeign;
        path.push_back(&node);
    }
    for (const Call& call : outline.innermost)
        innermost[call.text] = {call.clients, call.threads, call.isForeign, {}};
    for (const Row& row : outline.without)
        without[row.text] = row.clients;
    for (const Row& row : outline.helpers)
        helpers[row.text] = row.clients;
}

StackTree::Outline StackTree::outline() const {
    Outline flat;
    list(root.calls, 0, flat.calls);
    list(innermost, 0, flat.innermost);
    for (const auto& [reason, clients] : without)
        flat.without.push_back({reason, clients});
    for (const auto& [counts, clients] : helpers)
        flat.helpers.push_back({counts, clients});
    return flat;
}

// Recursion ends as that of merge does.
void StackTree::list(const std::map<std::string, Node>& nodes, std::size_t depth,
                     std::vector<Call>& calls) {
    for (const auto& [text, node] : nodes) {
        calls.push_back({depth, text, node.clients, node.threads, node.isForeign});
        list(node.calls, depth + 1, calls);
    }
}

void StackTree::add(const StackTree& other) {
    merge(root.calls, other.root.calls);
    merge(innermost, other.innermost);
    for (const auto& [reason, clients] : other.without)
        without[reason].insert(clients);
    for (const auto& [counts, clients] : other.helpers)
        helpers[counts].insert(clients);
}

// Recursion ends: a stack's depth is bounded by what its debugger was asked for.
void StackTree::merge(std::map<std::string, Node>& into, const std::map<std::string, Node>& other) {
    for (const auto& [call, node] : other) {
        Node& mine = into[call];
        mine.clients.insert(node.clients);
        mine.threads += node.threads;
        mine.isForeign = mine.isForeign || node.isForeign;
        merge(mine.calls, node.calls);
    }
}

ClientSet StackTree::differing(const StackTree& other) const {
    ClientSet clients;
    compare(root.calls, other.root.calls, clients);
    compare(other.root.calls, root.calls, clients);
    return clients;
}

// Adds the clients that are at calls of mine and not at the same of the others. Recursion ends as
// that of merge does.
void StackTree::compare(const std::map<std::string, Node>& mine,
                        const std::map<std::string, Node>& others, ClientSet& differing) {
    for (const auto& [call, node] : mine) {
        const auto theirs = others.find(call);
        ClientSet only = node.clients;
        if (theirs != others.end()) {
            only.erase(theirs->second.clients);
            compare(node.calls, theirs->second.calls, differing);
        }
        differing.insert(only);
    }
}

// Nodes of equal size stand in the order of their first clients.
std::vector<const std::pair<const std::string, StackTree::Node>*>
StackTree::byClients(const std::map<std::string, Node>& nodes) {
    std::vector<const std::pair<const std::string, Node>*> sorted;
    for (const auto& entry : nodes)
        sorted.push_back(&entry);
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto* a, const auto* b) {
        const ClientSet &left = a->second.clients, &right = b->second.clients;
        if (left.size() != right.size()) return left.size() < right.size();
        return left.front() < right.front();
    });
    return sorted;
}

// Of places with as many clients, those where they wait stand last: who has gone astray seldom
// waits.
std::vector<const std::pair<const std::string, StackTree::Node>*>
StackTree::placesByClients() const {
    auto sorted = byClients(innermost);
    const auto waits = [](const std::string& place) {
        return UserStack::waits(place.substr(0, place.find(calledBy)));
    };
    std::stable_sort(sorted.begin(), sorted.end(), [&waits](const auto* a, const auto* b) {
        const std::size_t left = a->second.clients.size(), right = b->second.clients.size();
        return left != right ? left < right : !waits(a->first) && waits(b->first);
    });
    return sorted;
}

std::string StackTree::threadsOf(const Node& node) {
    if (node.threads == node.clients.size()) return "";
    return " (" + std::to_string(node.threads) + " threads)";
}

std::vector<StackTree::RowGroup> StackTree::places() const {
    std::vector<RowGroup> groups;
    RowGroup group;
    for (const auto* place : placesByClients()) {
        const std::size_t size = place->second.clients.size();
        group.push_back({std::to_string(size) + (size == 1 ? " client in " : " clients in ") +
                             place->first + threadsOf(place->second),
                         place->second.clients});
    }
    ClientSet all;
    for (const auto& [call, node] : root.calls)
        all.insert(node.clients);
    for (const auto& [reason, clients] : without)
        all.insert(clients);
    if (group.size() > 1 && 2 * (group.size() - 1) > all.size() / 2) {
        for (Row& row : group)
            groups.push_back({std::move(row)});
    } else if (!group.empty()) {
        groups.push_back(std::move(group));
    }
    for (const auto& [reason, clients] : without)
        groups.push_back({{reason, clients}});
    return groups;
}

std::vector<ClientSet> StackTree::placeClients() const {
    std::vector<ClientSet> clients;
    for (const auto* place : placesByClients())
        clients.push_back(place->second.clients);
    return clients;
}

std::vector<StackTree::RowGroup> StackTree::tree() const {
    std::vector<RowGroup> rows;
    walk(root, 0, rows);
    return rows;
}

// The commonest first.
std::vector<StackTree::RowGroup> StackTree::helperThreads() const {
    RowGroup group;
    for (const auto& [counts, clients] : helpers)
        group.push_back({"helper threads: " + counts, clients});
    std::ranges::stable_sort(group, [](const Row& a, const Row& b) {
        return a.clients.size() != b.clients.size() ? a.clients.size() > b.clients.size()
                                                    : a.clients.front() < b.clients.front();
    });
    if (group.empty()) return {};
    return {group};
}

// Recursion ends as that of merge does.
void StackTree::walk(const Node& node, std::size_t depth, std::vector<RowGroup>& rows) {
    for (const auto* call : byClients(node.calls)) {
        rows.push_back({{std::string(2 * depth, ' ') + call->first + threadsOf(call->second),
                         call->second.clients}});
        walk(call->second, depth + 1, rows);
    }
}

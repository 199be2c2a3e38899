#include "frontend/switchboard/clientnodes.h"

#include <algorithm>

void ClientNodes::set(const ClientSet& clients, Node& node) {
    if (clients.empty()) return;
    nodes.resize(std::max(nodes.size(), static_cast<std::size_t>(clients.back()) + 1));
    for (const int id : clients)
        nodes[static_cast<std::size_t>(id)] = &node;
}

std::map<Node*, ClientSet> ClientNodes::split(const ClientSet& clients) const {
    std::map<Node*, ClientSet> parts;
    Node* last = nullptr;
    ClientSet* theirs = nullptr;
    for (const int id : clients) {
        Node* const node = nodes[static_cast<std::size_t>(id)];
        if (!theirs || node != last) theirs = &parts[last = node];
        theirs->insert(id);
    }
    return parts;
}

void ClientNodes::begin(const ClientSet& clients, const Work& work, Clock::time_point now) const {
    for (const auto& [node, theirs] : split(clients))
        node->begin(theirs, work, now);
}

void ClientNodes::type(const ClientSet& clients, const std::string& line) const {
    for (const auto& [node, theirs] : split(clients))
        node->type(theirs, line);
}

void ClientNodes::interrupt(const ClientSet& clients, Clock::time_point now) const {
    for (const auto& [node, theirs] : split(clients))
        node->interrupt(theirs, now);
}

ClientSet ClientNodes::reply(const ClientSet& clients, const std::string& text,
                             Clock::time_point now) const {
    ClientSet taken;
    for (const auto& [node, theirs] : split(clients))
        taken.insert(node->reply(theirs, text, now));
    return taken;
}

#pragma once

#include "backend/folding/node.h"
#include "backend/os/clock.h"
#include "common/clientset.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// Which node has which client: hands what clients are to do to their nodes, which must outlive
/// this.
class ClientNodes {
  public:
    /// Nobody else: clients 0 to count - 1, of that node.
    void assign(int count, Node& node) { nodes.assign(static_cast<std::size_t>(count), &node); }
    void set(const ClientSet& clients, Node& node);
    bool has(int client) const {
        const auto index = static_cast<std::size_t>(client);
        return index < nodes.size() && nodes[index];
    }
    /// The clients by their nodes.
    std::map<Node*, ClientSet> split(const ClientSet& clients) const;

    // As a Node's
    void begin(const ClientSet& clients, const Work& work, Clock::time_point now) const;
    void type(const ClientSet& clients, const std::string& line) const;
    void interrupt(const ClientSet& clients, Clock::time_point now) const;
    ClientSet reply(const ClientSet& clients, const std::string& text, Clock::time_point now) const;

  private:
    std::vector<Node*> nodes; // by client; null: there is no such client
};

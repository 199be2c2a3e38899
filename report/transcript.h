#pragma once

#include "common/clientset.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// A line, and the clients that it is from or about.
struct Row {
    ClientSet clients;
    std::string text;
    bool operator==(const Row&) const = default;
};

/// The lines of each of many clients, in the order in which they were added. Clients share the text
/// of a line that they have said together. Does no I/O.
class Transcript {
  public:
    /// Of each client the last `most` lines are kept; 0: all.
    explicit Transcript(std::size_t most = 0) : bound(most) {}

    void add(const ClientSet& clients, std::string line);
    void add(const std::vector<Row>& rows);
    /// Takes the client's last line back when it is empty.
    void dropBlank(int client);
    /// Drops the client's lines.
    void forget(int client);
    std::vector<std::string_view> of(int client) const;

    /// Clients that have said the same lines.
    struct Part {
        ClientSet clients;
        std::vector<std::string> lines;
        bool operator==(const Part&) const = default;
    };
    /// Those with the lowest client first; clients without lines are left out.
    std::vector<Part> parts() const;

  private:
    std::size_t bound;
    std::vector<std::vector<std::shared_ptr<const std::string>>> lines; // by client
};

#pragma once

#include "common/line.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

/// Walks lines client by client: for each client that printed any of them, in ascending order,
/// those lines in their own order.
///
/// Clients are taken in blocks. A line waits at the block of its next client, so that each block
/// meets only lines that it has, and clients without output cost nothing. The lines are borrowed.
class PerClient {
  public:
    /// Of the clients from `first` to `last`, both inclusive.
    PerClient(std::vector<const Line*> shown, int first, int last);

    /// Goes on to the next block; false when there is none.
    bool next();
    /// Calls visit(client, line) for every line of every client of the block.
    template <class Visit>
    void visit(Visit each) const {
        for (std::size_t c = low; c < high; ++c) {
            for (std::uint32_t i = begins[c]; i < begins[c + 1]; ++i)
                each(static_cast<int>(block + static_cast<std::int64_t>(c)), *lines[members[i]]);
        }
    }

  private:
    static constexpr std::size_t blockSize = 1024; // clients

    std::vector<const Line*> lines;
    std::int64_t first, last;
    std::map<std::int64_t, std::vector<std::uint32_t>> waiting; // by the block's first client
    std::int64_t block = 0;
    // Which lines the block's clients have: those of the c-th are members[begins[c]] and so on.
    std::vector<std::uint32_t> begins, members;
    std::size_t low = 0, high = 0; // the clients of the block that have any
    std::vector<std::uint32_t> fill;

    static std::int64_t blockOf(std::int64_t client);
    void wait(std::uint32_t line, std::int64_t from);
    template <class Each>
    void eachClient(std::uint32_t line, Each each) const;
};

#include "display/perclient.h"

#include <algorithm>
#include <utility>

PerClient::PerClient(std::vector<const Line*> shown, int firstClient, int lastClient)
    : lines(std::move(shown)), first(firstClient), last(lastClient), begins(blockSize + 1) {
    for (std::size_t i = 0; i < lines.size(); ++i)
        wait(static_cast<std::uint32_t>(i), first);
}

std::int64_t PerClient::blockOf(std::int64_t client) {
    constexpr std::int64_t size = blockSize;
    return (client < 0 ? client - size + 1 : client) / size * size;
}

// Has the line wait at its next client from one on.
void PerClient::wait(std::uint32_t line, std::int64_t from) {
    const ClientSet& clients = lines[line]->clients();
    if (clients.empty() || from > clients.back()) return;
    const int client = clients.firstFrom(static_cast<int>(from));
    if (client <= last) waiting[blockOf(client)].push_back(line);
}

template <class Each>
void PerClient::eachClient(std::uint32_t line, Each each) const {
    const std::int64_t from = std::max(block, first);
    const std::int64_t to = std::min(block + static_cast<std::int64_t>(blockSize) - 1, last);
    lines[line]->clients().eachRun(static_cast<int>(from), static_cast<int>(to),
                                   [this, &each](int begin, int end) {
                                       for (std::int64_t c = begin - block; c <= end - block; ++c)
                                           each(static_cast<std::size_t>(c));
                                   });
}

bool PerClient::next() {
    if (waiting.empty()) return false;
    const auto node = waiting.extract(waiting.begin());
    block = node.key();
    std::vector<std::uint32_t> here = node.mapped();
    if (!std::is_sorted(here.begin(), here.end())) std::sort(here.begin(), here.end());
    // Counted, added up, and filled in: the lines stay in their order.
    if (low < high)
        std::fill_n(begins.begin() + static_cast<std::ptrdiff_t>(low), high - low + 1, 0);
    low = blockSize;
    high = 0;
    for (const std::uint32_t line : here) {
        eachClient(line, [this](std::size_t c) {
            ++begins[c + 1];
            low = std::min(low, c);
            high = std::max(high, c + 1);
        });
    }
    if (low >= high) return true;
    for (std::size_t c = low; c < high; ++c)
        begins[c + 1] += begins[c];
    members.resize(begins[high]);
    fill.assign(begins.begin() + static_cast<std::ptrdiff_t>(low),
                begins.begin() + static_cast<std::ptrdiff_t>(high));
    for (const std::uint32_t line : here) {
        eachClient(line, [&](std::size_t c) { members[fill[c - low]++] = line; });
        wait(line, block + static_cast<std::int64_t>(blockSize));
    }
    return true;
}

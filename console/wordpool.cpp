#include "console/wordpool.h"

#include <algorithm>
#include <cstring>

namespace {

std::uint64_t load(const char* at, std::size_t bytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, at, bytes);
    return word;
}

std::uint64_t mix(std::uint64_t h, std::uint64_t word) {
    h = (h ^ word) * 0x9e3779b97f4a7c15u;
    return h ^ h >> 29;
}

} // namespace

std::uint32_t WordPool::hashOf(std::string_view text) {
    std::uint64_t h = text.size();
    const char* at = text.data();
    std::size_t left = text.size();
    for (; left > 8; at += 8, left -= 8)
        h = mix(h, load(at, 8));
    // The rest, by loads of constant size that may overlap.
    if (left >= 4)
        h = mix(h, load(at, 4) << 32 | load(at + left - 4, 4));
    else if (left > 0)
        h = mix(h, load(at, 1) << 16 | load(at + left / 2, 1) << 8 | load(at + left - 1, 1));
    return static_cast<std::uint32_t>(h ^ h >> 32);
}

void WordPool::unlink(std::uint16_t at) {
    std::uint16_t* link = &heads[hashes[at] % chains];
    while (*link != at)
        link = &nexts[*link];
    *link = nexts[at];
}

std::uint64_t WordPool::add(const Word& word) {
    // The place of the entry that will be dropped next, if any.
    const auto oldest = static_cast<std::uint16_t>(added % capacity);
    if (const std::uint16_t known = find(word); known != none) {
        const std::uint64_t lap = added - oldest;
        return known < oldest ? lap + known : lap + known - capacity;
    }
    if (added >= capacity) unlink(oldest);
    std::uint16_t& head = heads[word.hash % chains];
    contextQueue[oldest] = word.text;
    hashes[oldest] = word.hash;
    nexts[oldest] = head;
    head = oldest;
    return added++;
}

void WordPool::settle() {
    for (settled = std::max(settled, dropped()); settled < added; ++settled) {
        const std::size_t at = settled % capacity;
        owned[at] = contextQueue[at];
        contextQueue[at] = owned[at];
    }
}

#include "backend/folding/sentlines.h"

#include <algorithm>

namespace {

template <class Spots>
auto seek(Spots& spots, int number) {
    return std::lower_bound(
        spots.begin(), spots.end(), number,
        [](const SentLines::Spot& each, int value) { return each.number < value; });
}

} // namespace

int SentLines::place(int number, std::uint64_t hash) const {
    const auto* spots = spotsOf(hash);
    if (!spots) return -1;
    const auto at = seek(*spots, number);
    return at != spots->end() && at->number == number ? at->place : -1;
}

const std::vector<SentLines::Spot>* SentLines::spotsOf(std::uint64_t hash) const {
    const auto known = index.find(hash);
    return known == index.end() ? nullptr : &known->second;
}

void SentLines::add(int number, std::uint64_t hash) {
    raise(number);
    if (!reachable(number)) return; // more texts than are kept, all under the highest number
    std::vector<Spot>& spots = index[hash];
    const auto at = seek(spots, number);
    if (at != spots.end() && at->number == number) return;
    auto& texts = numbers[static_cast<std::size_t>(number - lowest())];
    spots.insert(at, {number, static_cast<int>(texts.size())});
    texts.push_back(hash);
    ++hashes;
    while (hashes > maxHashes)
        dropLowest();
}

void SentLines::raise(int number) {
    while (top < number) {
        numbers.emplace_back();
        ++top;
        if (numbers.size() > static_cast<std::size_t>(reach) + 1) dropLowest();
    }
}

void SentLines::dropLowest() {
    for (const std::uint64_t hash : numbers.front()) {
        const auto known = index.find(hash);
        known->second.erase(known->second.begin()); // its lowest
        if (known->second.empty()) index.erase(known);
    }
    hashes -= numbers.front().size();
    numbers.pop_front();
}

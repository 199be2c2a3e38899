// Sets of clients against the standard library's, and verdicts against the full matrix.
#include "common/clientset.h"
#include "display/closeness.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

enum Shape { EVERY_OTHER, RANDOM_HALF };

// Two sets of about 100,000 clients out of 200,000.
template <class Set>
std::pair<Set, Set> pairOf(std::int64_t shape) {
    std::mt19937 random(1);
    std::pair<Set, Set> sets;
    for (int id = 0; id < 200000; ++id) {
        const unsigned r = random();
        if (shape == EVERY_OTHER ? id % 2 == 0 : (r & 1) != 0) sets.first.insert(id);
        if (shape == EVERY_OTHER ? id % 4 == 1 : (r & 2) != 0) sets.second.insert(id);
    }
    return sets;
}

std::size_t bytesOf(const ClientSet& set) { return sizeof set + set.heapSize(); }
// A node has three pointers, a colour and the id, in a block of the allocator with its head.
std::size_t bytesOf(const std::set<int>& set) { return sizeof(std::set<int>) + set.size() * 48; }

void unite(ClientSet& set, const ClientSet& other) { set.insert(other); }
void unite(std::set<int>& set, const std::set<int>& other) {
    set.insert(other.begin(), other.end());
}

template <class Set>
void setUnion(benchmark::State& state) {
    const auto [one, other] = pairOf<Set>(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        auto united = std::make_unique<Set>(one);
        state.ResumeTiming();
        unite(*united, other);
        benchmark::DoNotOptimize(united->size());
        state.PauseTiming();
        united.reset();
        state.ResumeTiming();
    }
    state.counters["bytes"] = static_cast<double>(bytesOf(one));
}
BENCHMARK(setUnion<ClientSet>)->Name("union")->Arg(EVERY_OTHER)->Arg(RANDOM_HALF);
BENCHMARK(setUnion<std::set<int>>)->Name("unionStd")->Arg(EVERY_OTHER)->Arg(RANDOM_HALF);

// A leader and lines near it: 20 bytes, 80 bytes with a field of their own, 80 bytes with edits
// everywhere, 200 bytes with a field of their own, and with edits everywhere.
enum Texts { SHORT, FIELD, SCATTERED, LONG_FIELD, LONG };

std::vector<std::string> textsOf(std::int64_t kind) {
    std::mt19937 random(1);
    const auto pick = [&](std::size_t below) { return random() % below; };
    const std::size_t length = kind == SHORT ? 20 : kind >= LONG_FIELD ? 200 : 80;
    std::string leader(length, ' ');
    for (char& c : leader)
        c = static_cast<char>('a' + pick(26));
    std::vector<std::string> texts{leader};
    for (int i = 0; i < 256; ++i) {
        std::string text = leader;
        if (kind == FIELD || kind == LONG_FIELD) {
            for (std::size_t at = 30; at < 42; ++at)
                text[at] = "0123456789abcdef"[pick(16)];
        } else {
            for (std::size_t edits = length / 8; edits > 0; --edits)
                text.replace(pick(text.size()), pick(2), 1, '#');
        }
        texts.push_back(text);
    }
    return texts;
}

void verdict(benchmark::State& state) {
    const std::vector<std::string> texts = textsOf(state.range(0));
    Closeness closeness;
    closeness.lead(texts[0]);
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(closeness.compare(texts[1 + i++ % 256]));
    }
}
BENCHMARK(verdict)->DenseRange(SHORT, LONG);

unsigned matrixDistance(const std::string& a, const std::string& b) {
    const std::size_t width = b.size() + 1;
    const auto cells = std::make_unique<unsigned[]>((a.size() + 1) * width);
    for (std::size_t i = 0; i <= a.size(); ++i)
        cells[i * width] = static_cast<unsigned>(i);
    for (std::size_t j = 0; j <= b.size(); ++j)
        cells[j] = static_cast<unsigned>(j);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const unsigned* above = &cells[(i - 1) * width + j];
            cells[i * width + j] =
                std::min({cells[i * width + j - 1] + 1, above[0] + 1,
                          above[-1] + static_cast<unsigned>(a[i - 1] != b[j - 1])});
        }
    }
    return cells[a.size() * width + b.size()];
}

void verdictByMatrix(benchmark::State& state) {
    const std::vector<std::string> texts = textsOf(state.range(0));
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(matrixDistance(texts[0], texts[1 + i++ % 256]));
    }
}
BENCHMARK(verdictByMatrix)->DenseRange(SHORT, LONG);

} // namespace

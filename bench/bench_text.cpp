// What is done to single texts: the edit distance and the words for completion.
#include "console/readline.h"
#include "display/levenshtein.h"

#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

namespace {

// Two lines of output that differ in every tenth byte.
void editDistance(benchmark::State& state) {
    const std::size_t length = static_cast<std::size_t>(state.range(0));
    std::mt19937 random(1);
    std::string a(length, ' ');
    for (char& c : a)
        c = static_cast<char>(' ' + random() % 90);
    std::string b = a;
    for (std::size_t i = 0; i < length; i += 10)
        b[i] = '~';
    b.back() = '~';
    for (auto _ : state)
        benchmark::DoNotOptimize(Levenshtein::Distance(a, b));
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(editDistance)->Arg(20)->Arg(80)->Arg(300)->Arg(2000);

// The words of 1,000 lines; as many distinct ones as the argument says, the pool holds 400.
void completionWords(benchmark::State& state) {
    std::vector<std::string> words;
    for (int i = 0; i < 8000; ++i)
        words.push_back("word" + std::to_string(i % state.range(0)));
    for (auto _ : state) {
        for (const std::string& word : words)
            Readline::addContext(word);
    }
    state.SetItemsProcessed(state.iterations() * 8000);
}
BENCHMARK(completionWords)->Arg(50)->Arg(8000)->Unit(benchmark::kMillisecond);

} // namespace

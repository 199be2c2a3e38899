#include "backend/folding/folder.h"

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <string>
#include <vector>

namespace {

// What the allocator has handed out, in MB.
double heldNow() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd) / 1e6;
}

std::vector<std::string> commonLines() {
    std::vector<std::string> lines;
    for (int i = 0; i < 100; ++i)
        lines.push_back("step " + std::to_string(i) + ": residual below tolerance in all cells");
    return lines;
}

// 100 equal lines of each client, a line and a client at a time; memory without the record's.
void BM_FoldEqualLines(benchmark::State& state) {
    const int clients = static_cast<int>(state.range(0));
    const bool lineByLine = state.range(1) != 0;
    const std::vector<std::string> lines = commonLines();
    double held = 0;
    for (auto _ : state) {
        const double before = heldNow();
        Folder folder;
        const Clock::time_point now{};
        for (int i = 0; i < 100 * clients; ++i) {
            const int line = lineByLine ? i / clients : i % 100;
            folder.add(lineByLine ? i % clients : i / 100, lines[static_cast<std::size_t>(line)],
                       now);
        }
        const auto taken = folder.take();
        held = heldNow() - before;
        if (taken.lines.size() != 100) state.SkipWithError("does not fold");
    }
    state.counters["MB"] = held;
}
BENCHMARK(BM_FoldEqualLines)
    ->ArgNames({"clients", "line_by_line"})
    ->ArgsProduct({{10000, 100000}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

// The same as sets of 128 neighbours, as the agents of nodes give them.
void BM_FoldSets(benchmark::State& state) {
    const int nodes = static_cast<int>(state.range(0));
    const std::vector<std::string> lines = commonLines();
    for (auto _ : state) {
        Folder folder;
        for (int node = 0; node < nodes; ++node) {
            ClientSet clients;
            clients.insertRange(128 * node, 128 * node + 127);
            for (const std::string& line : lines)
                folder.add(clients, line, {});
        }
        benchmark::DoNotOptimize(folder.take());
    }
}
BENCHMARK(BM_FoldSets)->ArgName("nodes")->Arg(80)->Arg(1024)->Unit(benchmark::kMillisecond);

// Each client has a line of its own among the common ones, or says nothing that another says.
void BM_FoldUnlike(benchmark::State& state) {
    const int clients = static_cast<int>(state.range(0));
    const bool nothingCommon = state.range(1) != 0;
    const std::vector<std::string> lines = commonLines();
    for (auto _ : state) {
        Folder folder;
        std::size_t shown = 0;
        for (int id = 0; id < clients; ++id) {
            for (int i = 0; i < 100; ++i) {
                const std::string own = std::to_string(id) + "/" + std::to_string(i);
                if (nothingCommon || id % 100 == i) folder.add(id, own, {});
                if (!nothingCommon) folder.add(id, lines[static_cast<std::size_t>(i)], {});
            }
            if (folder.full()) shown += folder.take().lines.size();
        }
        shown += folder.take().lines.size();
        state.counters["lines"] = static_cast<double>(shown);
    }
}
BENCHMARK(BM_FoldUnlike)
    ->ArgNames({"clients", "nothing_common"})
    ->ArgsProduct({{100, 1000, 10000}, {0, 1}})
    ->Unit(benchmark::kMillisecond);

} // namespace

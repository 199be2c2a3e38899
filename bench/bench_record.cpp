// The road of a record: from the wire to the screen, into the kept output, and back out of it.
#include "bench/records.h"
#include "common/command.h"
#include "display/parser.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

void display(Data& data, Parser::Mode mode, const char* pattern) {
    Parser parser;
    parser.setColor(colorList[2].detail, Parser::EQUAL_COLOR);
    parser.setColor(colorList[9].detail, Parser::SIMILAR_COLOR);
    parser.setColor(colorList[1].detail, Parser::DIFFERENT_COLOR);
    parser.dump(&data, mode, pattern);
}

// Arguments: clients, agreement, display mode. One line of output.
void decodeAndDisplay(benchmark::State& state) {
    const Data sent =
        outputOf(0, static_cast<int>(state.range(0)), 1, static_cast<Agreement>(state.range(1)));
    int len = 0;
    const auto packed = sent.pack(&len);
    const Silence silence;
    for (auto _ : state) {
        Data data;
        data.unpack(packed.get(), len);
        display(data, static_cast<Parser::Mode>(state.range(2)), nullptr);
    }
    state.SetBytesProcessed(state.iterations() * len);
}
BENCHMARK(decodeAndDisplay)
    ->ArgsProduct({{10000, 100000},
                   {ALL_EQUAL, ONE_PERCENT_ODD, ALL_DIFFERENT},
                   {Parser::AUTO, Parser::COLLAPSED, Parser::EXPANDED}})
    ->Unit(benchmark::kMillisecond);

// Merges records that come in any order, and keeps that number of lines.
void mergeAll(benchmark::State& state, std::vector<Data> records, int lines) {
    std::shuffle(records.begin(), records.end(), std::mt19937(1));
    for (auto _ : state) {
        Data kept;
        for (const Data& record : records) {
            kept.addData(&record);
            kept.merge();
            kept.truncate(lines);
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(records.size()));
}

// Arguments: clients, agreement. Ten lines arrive in records of 100 clients, in any order.
void mergeIntoKeptOutput(benchmark::State& state) {
    const int clients = static_cast<int>(state.range(0));
    std::vector<Data> records;
    for (int from = 0; from < clients; from += 100)
        records.push_back(outputOf(from, from + 100, 10, static_cast<Agreement>(state.range(1))));
    mergeAll(state, std::move(records), 1000);
}
BENCHMARK(mergeIntoKeptOutput)
    ->ArgsProduct({{10000, 100000}, {ALL_EQUAL, ONE_PERCENT_ODD, ALL_DIFFERENT}})
    ->Unit(benchmark::kMillisecond);

// Argument: agreement. The first line of 100,000 records of one client each, in any order.
void mergeClientByClient(benchmark::State& state) {
    std::vector<Data> records;
    for (int id = 0; id < 100000; ++id)
        records.push_back(outputOf(id, id + 1, 1, static_cast<Agreement>(state.range(0))));
    mergeAll(state, std::move(records), 1000);
}
BENCHMARK(mergeClientByClient)->Arg(ALL_EQUAL)->Arg(ALL_DIFFERENT)->Unit(benchmark::kMillisecond);

const char* const cascades[] = {"relax", "'ring.c:(17|1[0-9]*7)' | match '^0:'", "nothing"};

// Arguments: agreement, display mode, cascade. 1,000 kept lines of 10,000 clients.
void match(benchmark::State& state) {
    Data kept = outputOf(0, 10000, 1000, static_cast<Agreement>(state.range(0)));
    const Silence silence;
    for (auto _ : state)
        display(kept, static_cast<Parser::Mode>(state.range(1)), cascades[state.range(2)]);
}
BENCHMARK(match)
    ->ArgsProduct({{ALL_EQUAL, ONE_PERCENT_ODD}, {Parser::AUTO, Parser::COLLAPSED}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(match)->Args({ALL_EQUAL, Parser::EXPANDED, 0})->Unit(benchmark::kMillisecond);

// Argument: agreement. The group of all clients that printed something.
void filteredGroup(benchmark::State& state) {
    const Data kept = outputOf(0, 100000, 10, static_cast<Agreement>(state.range(0)));
    for (auto _ : state) {
        GroupCommand group;
        group.setOpType(GroupCommand::ASSIGN);
        group.setBase("FILTERED");
        for (const auto& [number, slot] : kept.slots()) {
            for (const Line& line : slot.lines)
                group.addOperands(line.clients());
        }
        int len = 0;
        benchmark::DoNotOptimize(group.pack(&len));
    }
}
BENCHMARK(filteredGroup)->DenseRange(ALL_EQUAL, ALL_DIFFERENT)->Unit(benchmark::kMillisecond);

} // namespace

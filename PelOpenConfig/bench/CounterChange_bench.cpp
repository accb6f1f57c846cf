#include <absl/container/btree_map.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <map>
#include <memory>

#include "PelOpenConfig/test/PublishedCounters.h"

// What a change of a counter costs from the store to the AFT: the pump tells it, the counters mapper
// reads it, the next-hop mapper writes the entry. The limit of the same run: reading the records
// from the store in key order and putting what was read into a sorted map. In time of this thread;
// the producer's is not counted.
namespace Pel::Oc {
namespace {

PublishedCounters& countersOf(std::int64_t count) {
    static std::map<std::int64_t, std::unique_ptr<PublishedCounters>> all;
    std::unique_ptr<PublishedCounters>& place = all[count];
    if (!place) { place = std::make_unique<PublishedCounters>(static_cast<std::uint64_t>(count)); }
    return *place;
}

void BM_CountersMapperSm_TableToAft(benchmark::State& state) {
    PublishedCounters& on = countersOf(state.range(0));
    const auto count = static_cast<std::uint64_t>(state.range(0));
    std::uint64_t packets = 1;
    for (auto _ : state) {
        Kiln::Duration worked{};
        on.countersAre(count, ++packets, [&] {
            const auto begin = on.from.clock.now();
            on.from.scheduler->runUntilIdle();
            worked += on.from.clock.now() - begin;
        });
        const auto begin = on.from.clock.now();
        on.settle();
        worked += on.from.clock.now() - begin;
        state.SetIterationTime(std::chrono::duration<double>(worked).count());
        const auto* const last = on.nextHopCounters->nextHopCounter(OcApi::NextHopIndex{count});
        if (on.nextHopCounters->size() != count || last->packetsForwarded != packets) {
            state.SkipWithError("not all counters are shown");
        }
    }
    state.counters["longestSliceUs"] =
        std::chrono::duration<double, std::micro>(on.counters->walkStatistics().longestSlice)
            .count();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_CountersMapperSm_TableToAft)
    ->Arg(10'000)
    ->Arg(100'000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

/// The limit.
void BM_CounterTable_ReadInKeyOrderAndInsert(benchmark::State& state) {
    PublishedCounters& on = countersOf(state.range(0));
    if (!on.counterTable->has(FlexCounters::CounterIndex{1})) {
        on.countersAre(static_cast<std::uint64_t>(state.range(0)), 1, [] {});
        on.settle();
    }
    for (auto _ : state) {
        const auto begin = on.from.clock.now();
        absl::btree_map<std::uint64_t, FlexCounters::MesaFlexCounter> read;
        for (const FlexCounters::CounterIndex& key : on.counterTable->keys()) {
            read.emplace(key.value(), *on.counterTable->read(key));
        }
        benchmark::DoNotOptimize(read);
        state.SetIterationTime(std::chrono::duration<double>(on.from.clock.now() - begin).count());
        on.from.scheduler->runUntilIdle();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_CounterTable_ReadInKeyOrderAndInsert)
    ->Arg(10'000)
    ->Arg(100'000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Pel::Oc

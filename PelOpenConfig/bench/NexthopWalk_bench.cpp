#include <absl/container/btree_map.h>
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "PelOpenConfig/PelNexthopGroupMapperSm.h"
#include "PelOpenConfig/test/PublishedExport.h"
#include "platform/Stash/Set.h"

// What the walks of the next hops and of the groups (a quarter as many, of four members each) cost per
// element, beside a limit of the same run: reading the next hops' records from the store in key order
// and putting what was read into a sorted map. PEL_BENCH_SIZES="10000,1000000" sets the numbers of next
// hops.
namespace Pel::Oc {
namespace {

constexpr std::uint64_t kMembers = PublishedExport::kMembers;

PublishedExport& exportOf(std::int64_t count) {
    static std::map<std::int64_t, std::unique_ptr<PublishedExport>> all;
    std::unique_ptr<PublishedExport>& place = all[count];
    if (!place) {
        const auto nextHops = static_cast<std::uint64_t>(count);
        place = std::make_unique<PublishedExport>(nextHops, fillPlain, nextHops / kMembers);
    }
    return *place;
}

void sizes(benchmark::internal::Benchmark* bench) {
    const char* const wanted = std::getenv("PEL_BENCH_SIZES");
    std::istringstream list{wanted != nullptr ? wanted : "10000,100000"};
    for (std::string size; std::getline(list, size, ',');) { bench->Arg(std::stoll(size)); }
    bench->Unit(benchmark::kMillisecond);
}

/// From stash-ready to the last entry written, all slices included.
void BM_NexthopMapperSm_Walk(benchmark::State& state) {
    PublishedExport& from = exportOf(state.range(0));
    for (auto _ : state) {
        const auto nextHops = Vel::make<OcApi::NextHopContainer>("nextHops");
        const auto sut = from.mapper(nextHops);
        from.scheduler->runUntilIdle();
        if (nextHops->size() != static_cast<std::size_t>(state.range(0))) {
            state.SkipWithError("not all next hops were mapped");
        }
        state.counters["longestSliceUs"] =
            static_cast<double>(sut->walkStatistics().longestSlice.count()) / 1000.0;
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_NexthopMapperSm_Walk)->Apply(sizes);

void BM_NexthopGroupMapperSm_Walk(benchmark::State& state) {
    PublishedExport& from = exportOf(state.range(0));
    const std::int64_t count = state.range(0) / static_cast<std::int64_t>(kMembers);
    for (auto _ : state) {
        const auto groups = Vel::make<OcApi::NextHopGroupContainer>("nextHopGroups");
        const auto sut =
            nexthopGroupMapperSmFactory(from.scheduler,
                                        from.mountGroup,
                                        from.set,
                                        Vel::make<FlattenFecSetReadyStatus>("fecReadyStatus"),
                                        groups,
                                        Vel::make<FecReadyTrackingState>(),
                                        from.context);
        from.scheduler->runUntilIdle();
        if (groups->size() != static_cast<std::size_t>(count)) {
            state.SkipWithError("not all groups were mapped");
        }
    }
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_NexthopGroupMapperSm_Walk)->Apply(sizes);

/// The limit: entry and record of each key, unread, into a sorted map.
void BM_Store_ReadInKeyOrderAndInsert(benchmark::State& state) {
    PublishedExport& from = exportOf(state.range(0));
    const auto manager = from.mountGroup->storeManager();
    for (auto _ : state) {
        absl::btree_map<std::uint64_t, std::size_t> sizes;
        for (const Stash::OcNextHopIndex& key : from.set->nextHop().keys()) {
            const auto entry = from.set->nextHop().entry(key);
            const auto bytes = manager->content(entry->handle);
            sizes.emplace(key.value(), bytes->size());
        }
        benchmark::DoNotOptimize(sizes);
        from.scheduler->runUntilIdle();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Store_ReadInKeyOrderAndInsert)->Apply(sizes);

}  // namespace
}  // namespace Pel::Oc

#include <absl/container/btree_map.h>
#include <benchmark/benchmark.h>

#include <array>
#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "PelOpenConfig/PelNexthopGroupMapperSm.h"
#include "PelOpenConfig/PelNexthopMapperSm.h"
#include "model/Fec/FlattenFec.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Registration.h"
#include "platform/Stash/Publisher.h"
#include "platform/Stash/Set.h"
#include "test/support/TempDir.h"

// What the walks of the next hops and of the groups (a quarter as many, of four members each) cost per
// element, beside a limit of the same run: reading the next hops' records from the store in key order
// and putting what was read into a sorted map. PEL_BENCH_SIZES="10000,1000000" sets the numbers of next
// hops.
namespace Pel::Oc {
namespace {

constexpr std::uint64_t kMembers = 4;

class Export {
public:
    explicit Export(std::int64_t count) {
        registerModelTypes();
        options_.directory = directory_.path() / "store";
        options_.mapBytes = std::size_t{2} << 30;
        publish(static_cast<std::uint64_t>(count));
        reader_ = Vel::make<Store::Reader>(scheduler, options_);
        const auto mesa = Vel::make<Mesa::EntityManager>(reader_);
        mountGroup =
            Vel::make<Stash::MountGroup>(mesa, Vel::make<Stash::Manager>(reader_), "stash");
        mountGroup->mount(FlattenFecSet::kPath,
                          FlattenFecSet::kType,
                          {Mesa::TableKind::stashSet, {"fec", "nextHop"}});
        mountGroup->close();
        set = mesa->entity<FlattenFecSet>(FlattenFecSet::kPath);
        scheduler->runUntilIdle();
        context = anchorValidatorContextFactory(set);
    }

    Kiln::SteadyClock clock;
    Vel::Ref<Kiln::TaskScheduler> scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::YieldByTime>());
    Vel::Ref<Stash::MountGroup> mountGroup;
    Vel::Ref<FlattenFecSet> set;
    Vel::Ref<AnchorValidatorContext> context;

private:
    void publish(std::uint64_t count) {
        std::string error;
        writer_ = std::make_unique<Store::Writer>(
            Store::Environment::open(options_, Store::Access::write, error));
        Stash::ContentPublisher contents{*writer_};
        Stash::CollectionPublisher<FecId, FlattenFecEntry> fecs{
            *writer_, contents, "hardware/pel/ocAft/fec", FlattenFecSet::kFecType};
        Stash::CollectionPublisher<Stash::OcNextHopIndex, FlattenNextHopEntry> nextHops{
            *writer_, contents, "hardware/pel/ocAft/nextHop", FlattenFecSet::kNextHopType};
        for (std::uint64_t i = 1; i <= count; ++i) {
            Stash::FlattenFecNextHop nextHop;
            nextHop.interface = Nexo::IntfId{"eth" + std::to_string(i % 64)};
            const std::array<std::uint8_t, 4> address{10,
                                                      static_cast<std::uint8_t>(i >> 16U),
                                                      static_cast<std::uint8_t>(i >> 8U),
                                                      static_cast<std::uint8_t>(i)};
            nextHop.address = Nexo::IpGenAddr{address};
            nextHop.mac = Nexo::EthAddr{{0, 1, 2, 3, 4, static_cast<std::uint8_t>(i)}};
            const Stash::OcNextHopIndex index{i};
            nextHops.set(index,
                         {index, NexthopGroupId{i}, NexthopGroupEntryIndex{0}, {}},
                         Stash::RecordCodec<Stash::FlattenFecNextHop>::encode(nextHop));
            if (i % 128 == 0) { (void)writer_->commit(); }
        }
        for (std::uint64_t id = 1; id <= count / kMembers; ++id) {
            Stash::FlattenFec fec;
            for (std::uint64_t member = 0; member < kMembers; ++member) {
                fec.nextHopIs({Stash::OcNextHopIndex{(id - 1) * kMembers + member + 1}, 1});
            }
            FlattenFecEntry entry;
            entry.topFec = true;
            entry.programmedId = id;
            fecs.set(FecId{id}, entry, Stash::RecordCodec<Stash::FlattenFec>::encode(fec));
            if (id % 128 == 0) { (void)writer_->commit(); }
        }
        (void)writer_->commit();
    }
    TestSupport::TempDir directory_;
    Store::Options options_;
    std::unique_ptr<Store::Writer> writer_;
    Vel::Ref<Store::Reader> reader_;
};

Export& exportOf(std::int64_t count) {
    static std::map<std::int64_t, std::unique_ptr<Export>> all;
    std::unique_ptr<Export>& place = all[count];
    if (!place) { place = std::make_unique<Export>(count); }
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
    Export& from = exportOf(state.range(0));
    for (auto _ : state) {
        const auto nextHops = Vel::make<OcApi::NextHopContainer>("nextHops");
        const auto sut =
            NexthopMapperSmIs(from.scheduler,
                              from.mountGroup,
                              from.set,
                              Vel::make<FlattenFecSetReadyStatus>("fecReadyStatus"),
                              nextHops,
                              Vel::make<FecReadyTrackingState>(),
                              Vel::make<OcApi::NextHopCountersContainer>("nextHopCounters"),
                              Vel::make<PelOcFecExportData>(),
                              from.context,
                              Vel::make<PelOcNextHopCountersMap>(),
                              nullptr,
                              nullptr,
                              nullptr);
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
    Export& from = exportOf(state.range(0));
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
    Export& from = exportOf(state.range(0));
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

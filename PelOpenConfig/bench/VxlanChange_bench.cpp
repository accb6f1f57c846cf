#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "PelOpenConfig/test/PublishedExport.h"

// What a change of one VXLAN tunnel interface's local VTEP address costs: its next hops, the first
// number, of all, the second, are mapped again. The limit of the same run: as many next hops without
// encapsulation of as many, each put into the backlog by its own change. Reactions and slices are in
// time of this thread.
namespace Pel::Oc {
namespace {

template <std::uint64_t NextHopsPerVti>
void fillVxlan(std::uint64_t id, Stash::FlattenFecNextHop& to) {
    fillPlain(id, to);
    const std::string vti = "vxlan" + std::to_string((id - 1) / NextHopsPerVti);
    to.vxlan = Stash::VxlanEncap{Nexo::IntfId{vti}, static_cast<std::uint32_t>(id % 100)};
}

/// Set, machine and what it has exported, made once for each size.
struct Exported {
    explicit Exported(std::uint64_t all, PublishedExport::FillNextHop fill) : from{all, fill} {
        from.scheduler->runUntilIdle();
    }
    PublishedExport from;
    Vel::Ref<OcApi::NextHopContainer> nextHops = Vel::make<OcApi::NextHopContainer>("nextHops");
    Vel::Ref<Vxlan::VtiStatusDir> vtis = Vel::make<Vxlan::VtiStatusDir>("vxlan");
    Vel::Ref<NexthopMapperSm> sut = from.mapper(nextHops, vtis);
};

Exported& exported(std::uint64_t all, PublishedExport::FillNextHop fill) {
    static std::map<std::pair<std::uint64_t, PublishedExport::FillNextHop>,
                    std::unique_ptr<Exported>>
        each;
    std::unique_ptr<Exported>& place = each[{all, fill}];
    if (!place) {
        place = std::make_unique<Exported>(all, fill);
        place->from.scheduler->runUntilIdle();
    }
    return *place;
}

/// Has `change` called for one run of `affected` next hops after the other, and their walk done.
template <class Change>
void measure(benchmark::State& state, PublishedExport::FillNextHop fill, Change change) {
    const auto affected = static_cast<std::uint64_t>(state.range(0));
    const auto all = static_cast<std::uint64_t>(state.range(1));
    Exported& on = exported(all, fill);
    std::uint64_t written = 0;
    const auto count =
        on.nextHops->onNextHop().subscribe([&](const OcApi::NextHopIndex&) { ++written; });
    std::uint64_t turn = 0;
    Kiln::Duration longestReaction{};
    for (auto _ : state) {
        const auto begin = on.from.clock.now();
        change(*on.sut, turn, affected);
        longestReaction = std::max(longestReaction, on.from.clock.now() - begin);
        on.from.scheduler->runUntilIdle();
        turn = (turn + 1) % (all / affected);
    }
    if (written != affected * static_cast<std::uint64_t>(state.iterations())) {
        state.SkipWithError("not exactly the affected next hops were written");
    }
    using Micros = std::chrono::duration<double, std::micro>;
    state.counters["longestReactionUs"] = Micros{longestReaction}.count();
    state.counters["longestSliceUs"] = Micros{on.sut->walkStatistics().longestSlice}.count();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <std::uint64_t NextHopsPerVti>
void BM_NexthopMapperSm_VtepAddrChange(benchmark::State& state) {
    measure(state,
            fillVxlan<NextHopsPerVti>,
            [](NexthopMapperSm& sut, std::uint64_t turn, std::uint64_t /*affected*/) {
                sut.handleVtepAddrChange(Nexo::IntfId{"vxlan" + std::to_string(turn)},
                                         Nexo::V4V6::ipv4);
            });
}

/// The limit.
void BM_NexthopMapperSm_PlainChanges(benchmark::State& state) {
    measure(state, fillPlain, [](NexthopMapperSm& sut, std::uint64_t turn, std::uint64_t affected) {
        for (std::uint64_t i = 1; i <= affected; ++i) {
            sut.handleNextHop(Stash::OcNextHopIndex{turn * affected + i});
        }
    });
}

BENCHMARK(BM_NexthopMapperSm_VtepAddrChange<100>)->Args({100, 10'000})->Args({100, 100'000});
BENCHMARK(BM_NexthopMapperSm_VtepAddrChange<1'000>)->Args({1'000, 100'000});
BENCHMARK(BM_NexthopMapperSm_VtepAddrChange<100'000>)->Args({100'000, 100'000});
BENCHMARK(BM_NexthopMapperSm_PlainChanges)
    ->Args({100, 10'000})
    ->Args({100, 100'000})
    ->Args({1'000, 100'000})
    ->Args({100'000, 100'000});

/// One record holds all tunnel interfaces: what a change of one of them costs before the mapper
/// hears of it.
void BM_VtiStatusDir_ChangeOne(benchmark::State& state) {
    const auto dir = Vel::make<Vxlan::VtiStatusDir>("vxlan");
    std::uint64_t told = 0;
    const auto watch =
        dir->onVtepAddr().subscribe([&](const Nexo::IntfId&, Nexo::V4V6) { ++told; });
    Vxlan::VtiStatusDirRecord record;
    const auto addressIs = [&](std::int64_t vti, const char* address) {
        const Nexo::IntfId name{"vxlan" + std::to_string(vti)};
        record.vti[name] = {name, *Nexo::IpGenAddr::parse(address), {}, {{100, 10100}}};
        return Mesa::RecordCodec<Vxlan::VtiStatusDirRecord>::encode(record);
    };
    for (std::int64_t vti = 1; vti < state.range(0); ++vti) { addressIs(vti, "192.0.2.1"); }
    const std::string records[] = {addressIs(0, "192.0.2.1"), addressIs(0, "192.0.2.2")};
    dir->recordIs(records[1]);
    told = 0;
    std::size_t turn = 0;
    for (auto _ : state) {
        dir->recordIs(records[turn]);
        turn = 1 - turn;
    }
    if (told != static_cast<std::uint64_t>(state.iterations())) {
        state.SkipWithError("not exactly one interface changed each time");
    }
}
BENCHMARK(BM_VtiStatusDir_ChangeOne)->Arg(10)->Arg(1'000);

}  // namespace
}  // namespace Pel::Oc

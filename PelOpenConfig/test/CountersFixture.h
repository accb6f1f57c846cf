#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "PelOpenConfig/PelCountersMapperSm.h"
#include "PelOpenConfig/test/MapperFixture.h"

namespace Pel::Oc {

/// A next-hop mapper and, made by startCounters(), a counters mapper over the producer's store.
class CountersFixture : public MapperFixture {
protected:
    using CounterTable = FlexCounters::CounterTable;
    using CounterIndex = FlexCounters::CounterIndex;
    using MesaFlexCounter = FlexCounters::MesaFlexCounter;
    /// What the counters mapper handed over: next hop, packets, octets.
    using Passed = std::tuple<std::uint64_t, std::uint64_t, std::uint64_t>;

    CountersFixture() {
        Mesa::MountGroup group{mesa};
        group.mount(CounterTable::kPath, CounterTable::kType);
        group.close();
        counterTable = mesa->entity<CounterTable>(CounterTable::kPath);
    }
    ~CountersFixture() override { counters = nullptr; }
    CountersFixture(const CountersFixture&) = delete;
    CountersFixture& operator=(const CountersFixture&) = delete;

    Vel::Ref<CountersMapperSm> makeCounters() {
        return Vel::make<CountersMapperSm>(scheduler,
                                           stashMountGroup,
                                           counterTable,
                                           flattenFecSet,
                                           pelOcNextHopCountersMap,
                                           pelOcFecExportData,
                                           anchorValidatorCtx);
    }
    void startCounters() {
        counters = makeCounters();
        counters->handleInitialized();
    }
    /// Also what is as it was is told.
    void counterIs(CounterIndex index, const MesaFlexCounter& counter) {
        publisher().set(index, counter, true);
    }
    void counterIs(std::uint64_t index, std::uint64_t packets, std::uint64_t octets) {
        counterIs(CounterIndex{index}, {packets, octets});
    }
    void counterDel(std::uint64_t index) { publisher().erase(CounterIndex{index}); }
    void counterTableIs() { (void)publisher(); }

    static CounterIndex tunnelIndex(std::uint32_t number) {
        return FlexCounters::makeCounterIndex(Tunnel::TunnelTable::TunnelId::ofIpInIp(number));
    }
    static FecId tunnelFec(std::uint64_t number) {
        return makeFecId(FecKind::ipInIpTunnel, number);
    }
    /// A tunnel whose next hops, from `first` on, have these weights.
    void tunnelIs(std::uint64_t number,
                  const std::vector<std::uint32_t>& weights,
                  std::uint64_t first = 1) {
        Stash::FlattenFec fec;
        for (const std::uint32_t weight : weights) { fec.nextHopIs({nh(first++), weight}); }
        fecIs(tunnelFec(number).value(), fec);
    }
    /// An exported next hop, whose counter is the index of its own id.
    void countedNextHopIs(std::uint64_t id) {
        nextHopIs(id);
        counterKeyIs(nhgeck(id), id);
    }
    /// Both mappers, and nothing published yet.
    void begin() {
        counterTableIs();
        publish();
        start();
        startCounters();
        settle();
    }
    void expectMapEmpty() const {
        EXPECT_EQ(pelOcNextHopCountersMap->pickToOcNextHopIds().size(), 0U);
        EXPECT_EQ(pelOcNextHopCountersMap->nhgeckToOcNextHopId().size(), 0U);
        EXPECT_EQ(pelOcNextHopCountersMap->ocNextHopIdToPickAndNhgeck().size(), 0U);
    }
    /// Next hops 7 and 8 exported over counters 7 and 8, and the counters mapper.
    void exported() {
        counterTableIs();
        for (const std::uint64_t id : {7U, 8U}) { countedNextHopIs(id); }
        publish();
        start();
        startCounters();
        settle();
    }
    /// The traces of the counters mapper that this makes.
    template <class Step>
    std::vector<std::string> tracesOf(Step step) {
        const TestSupport::TraceCapture later;
        step();
        settleAfterASecond();
        return later.texts("PelCountersMapperSm");
    }
    static CounterIndex beyondTunnels() { return FlexCounters::makeCounterIndex(0x40000, 1); }
    const OcApi::NextHopCounter* shown(std::uint64_t id) const {
        return nextHopCounterSet->nextHopCounter(OcApi::NextHopIndex{id});
    }
    /// 0: none are shown.
    std::uint64_t packets(std::uint64_t id) const {
        return shown(id) == nullptr ? 0 : shown(id)->packetsForwarded;
    }
    std::vector<std::string> counterTexts() const { return traces.texts("PelCountersMapperSm"); }

    Vel::Ref<CounterTable> counterTable;
    Vel::Ref<CountersMapperSm> counters;
    std::vector<Passed> passed;
    Vel::Subscription onPassed =
        pelOcFecExportData->onNhCountersUpdate().subscribe([this](const NhCounters&) {
            const NhCounters& now = pelOcFecExportData->nhCountersUpdate();
            passed.emplace_back(now.key.value(), now.packetsForwarded, now.octetsForwarded);
        });

private:
    Mesa::TablePublisher<CounterIndex, MesaFlexCounter> publisher() {
        return {*writer, CounterTable::kPath, CounterTable::kType};
    }
};

}  // namespace Pel::Oc

#include "PelOpenConfig/PelCountersMapperSm.h"

#include <utility>

#include "PelOpenConfig/PelOpenConfigDestash.h"
#include "platform/Blink/Trace.h"
#include "platform/Stash/Set.h"

BLINK_TRACE_HANDLE("PelCountersMapperSm");

namespace Pel::Oc {
namespace {

using FlexCounters::CounterIndex;
using FlexCounters::MesaFlexCounter;
using Pick = PelOcNextHopCountersMap::Pick;
using Tunnel::TunnelTable::TunnelId;

/// A step is done between two elements of the walk: it must cost no more than a few of them.
constexpr int kSweptInAStep = 16;

CounterIndex counterIndexOf(FecId fecId) {
    return FlexCounters::makeCounterIndex(FecId::fecIdToTunnelId(fecId));
}

/// In 32 bits, which wrap.
std::uint32_t totalWeightOf(const Stash::FlattenFec& fec) {
    std::uint32_t total = 0;
    for (std::uint32_t i = 0; i < fec.nextHops(); ++i) { total += fec.nextHop(i).weight; }
    return total;
}

}  // namespace

CountersMapperSm::CountersMapperSm(Vel::Ref<Kiln::TaskScheduler> scheduler,
                                   Vel::Ref<Stash::MountGroup> stashMountGroup,
                                   Vel::Ref<FlexCounters::CounterTable> mesaFlexCounters,
                                   Vel::Ref<const FlattenFecSet> flattenFecSet,
                                   Vel::Ref<const PelOcNextHopCountersMap> pelOcNextHopCountersMap,
                                   Vel::Ref<PelOcFecExportData> pelOcFecExportData,
                                   Vel::Ref<AnchorValidatorContext> anchorValidatorCtx)
    : WalkMachine{std::move(scheduler), "CountersMapperSmTask", 4},
      stashMountGroup_{std::move(stashMountGroup)},
      mesaFlexCounters_{std::move(mesaFlexCounters)},
      flattenFecSet_{std::move(flattenFecSet)},
      pelOcNextHopCountersMap_{std::move(pelOcNextHopCountersMap)},
      pelOcFecExportData_{std::move(pelOcFecExportData)},
      anchorValidatorCtx_{std::move(anchorValidatorCtx)},
      onStashReady_{
          stashMountGroup_->onReady().subscribe(this, &CountersMapperSm::handleStashReady)} {
    if (mesaFlexCounters_) {
        onCounter_ =
            mesaFlexCounters_->onKey().subscribe(this, &CountersMapperSm::handleCounterUpdates);
        onCountersPresent_ = mesaFlexCounters_->onPresent().subscribe(
            this, &CountersMapperSm::handleCountersPresent);
    }
    if (flattenFecSet_) {
        onFec_ = flattenFecSet_->fec().onKey().subscribe(
            this, &CountersMapperSm::handleFlattenFecSetFecUpdates);
    }
}

void CountersMapperSm::handleInitialized() {
    TRACE9("Starting");
    initialized_ = true;
    handleStashReady();
}

void CountersMapperSm::handleStashReady() {
    TRACE9("StashMountGroup ready: {}", stashMountGroup_->ready());
    if (!stashMountGroup_->ready()) { return; }
    if (flattenFecSet_ && flattenFecSet_->fec().size() > 0) {
        sweptTo_.reset();
        backlogFeedIs([this] { return sweepFecs(); });
    }
    if (!backlogEmpty()) { scheduleWalk(); }
}

/// Of each kind but IP-in-IP tunnels one FEC stands for all: they have no tunnel, whatever their
/// number.
bool CountersMapperSm::sweepFecs() {
    for (int i = 0; i < kSweptInAStep; ++i) {
        const auto fecId = flattenFecSet_->fec().nextKey(sweptTo_);
        if (!fecId) { return false; }
        backlogIs(counterIndexOf(*fecId));
        sweptTo_ = fecKind(*fecId) == FecKind::ipInIpTunnel
                       ? *fecId
                       : makeFecId(fecKind(*fecId), kFecNumberMask);
    }
    return true;
}

void CountersMapperSm::handleCounterUpdates(const CounterIndex& counterIndex) {
    if (!initialized_) { return; }
    const Pick pick = PelOcNextHopCountersMap::pickOf(counterIndex);
    TRACE9("counterIndex {} pick {}", counterIndex, pick);
    const bool exported = pelOcNextHopCountersMap_->pickToOcNextHopIds().find(pick) != nullptr;
    const TunnelId tunnelId{FlexCounters::highWord(counterIndex)};
    if (!tunnelId.isIpInIp() && !exported) { return; }
    backlogIs(counterIndex);
    scheduleWalk();
}

void CountersMapperSm::handleCountersPresent() {
    if (!initialized_ || !mesaFlexCounters_->present()) { return; }
    backlogAddAll([table = mesaFlexCounters_](const auto& after) { return table->nextKey(after); });
    if (!backlogEmpty()) { scheduleWalk(); }
}

void CountersMapperSm::handleFlattenFecSetFecUpdates(const FecId& fecId) {
    if (!initialized_) { return; }
    TRACE9("fecId {}", fecId);
    backlogIs(counterIndexOf(fecId));
    scheduleWalk();
}

void CountersMapperSm::backlogProcessElem(const CounterIndex& counterIndex) {
    if (!initialized_) { return; }
    const Pick pick = PelOcNextHopCountersMap::pickOf(counterIndex);
    TRACE9("counters to process for the counterIndex {} pick {}", counterIndex, pick);
    const PickToOcNextHopIds* const pickToOcNextHopIds =
        pelOcNextHopCountersMap_->pickToOcNextHopIds().find(pick);
    const TunnelId tunnelId{FlexCounters::highWord(counterIndex)};
    if (tunnelId.isIpInIp()) {
        processIpInIpTunnelCounterUpdate(tunnelId, counterIndex);
    } else if (pickToOcNextHopIds != nullptr) {
        processNHGCounterUpdate(*pickToOcNextHopIds, counterIndex);
    }
}

/// Of several next hops only the first is served.
void CountersMapperSm::processNHGCounterUpdate(const PickToOcNextHopIds& pickToOcNextHopIds,
                                               CounterIndex counterIndex) {
    TRACE9("Update NHG NextHop Counters");
    const MesaFlexCounter counted = counter(counterIndex);
    if (MesaFlexCounter::isEq(counted, {})) {
        TRACE9("Dont have valid counters for counterIndex {}", counterIndex);
        return;
    }
    const Stash::OcNextHopIndex nhId = pickToOcNextHopIds.ocNextHopIdSet().first();
    pelOcFecExportData_->passTheNhCountersUpdate({nhId, counted.packets, counted.octets});
    TRACE7("Update nhCounters ( pkts {}, octets {} )  collection nhId {}",
           counted.packets,
           counted.octets,
           nhId.value());
}

void CountersMapperSm::processIpInIpTunnelCounterUpdate(TunnelId tunnelId,
                                                        CounterIndex counterIndex) {
    TRACE9("Update NextHop Counters for tunnelId {}", tunnelId);
    const auto fec = tunnelFec(tunnelId);
    if (!fec || fec->nextHops() == 0) { return; }
    const MesaFlexCounter counted = counter(counterIndex);
    if (MesaFlexCounter::isEq(counted, {})) {
        TRACE9("Dont have valid counters for counterIndex {}", counterIndex);
        return;
    }
    const std::uint64_t totalWeight = totalWeightOf(*fec);
    if (totalWeight == 0) {
        ++unweightedSprays_;
        return;
    }
    CounterSpray packets{counted.packets, totalWeight};
    CounterSpray octets{counted.octets, totalWeight};
    TRACE7(
        " total weight {} counters: pkts {} octets {} counters after spraying: pkts {} octets {} "
        "leftOverPkts {} leftOverOctets {}",
        totalWeight,
        counted.packets,
        counted.octets,
        packets.perWeight(),
        octets.perWeight(),
        packets.leftOver(),
        octets.leftOver());
    for (std::uint32_t i = 0; i < fec->nextHops(); ++i) {
        const auto& [nhId, weight] = fec->nextHop(i);
        const NhCounters share{nhId, packets.take(weight), octets.take(weight)};
        pelOcFecExportData_->passTheNhCountersUpdate(share);
        TRACE7("Update nhCounters collection nhId {} with pkts {} octets {}",
               nhId.value(),
               share.packetsForwarded,
               share.octetsForwarded);
    }
}

Vel::Ref<const Stash::FlattenFec> CountersMapperSm::tunnelFec(TunnelId tunnelId) const {
    if (!flattenFecSet_) { return nullptr; }
    const auto entry = flattenFecSet_->fec().entry(FecId::tunnelIdToFecId(tunnelId));
    return entry ? destashFec(entry->fecDedupedRawPtr(),
                              stashMountGroup_->storeManager(),
                              anchorValidatorCtx_->fecAv())
                 : nullptr;
}

MesaFlexCounter CountersMapperSm::counter(CounterIndex counterIndex) const {
    return mesaFlexCounters_ ? mesaFlexCounters_->read(counterIndex).value_or(MesaFlexCounter{})
                             : MesaFlexCounter{};
}

}  // namespace Pel::Oc

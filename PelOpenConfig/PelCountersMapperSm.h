#pragma once

#include "PelOpenConfig/PelAnchorValidatorContext.h"
#include "PelOpenConfig/PelOcFecExportData.h"
#include "model/Counters/CounterTable.h"
#include "model/Counters/PelOcNextHopCountersMap.h"
#include "model/Fec/FlattenFecSet.h"
#include "platform/Kiln/WalkMachine.h"

namespace Pel::Stash {
class FlattenFec;
class MountGroup;
}  // namespace Pel::Stash

namespace Pel::Oc {

/// One counter of a tunnel shared out over next hops by weight: each is given its weight's multiple
/// of the whole share, and what the division leaves over goes to the first ones, to each at most
/// its weight. So the shares add up to the counter exactly.
class CounterSpray {
public:
    /// `totalWeight`: of all next hops, not 0.
    CounterSpray(std::uint64_t counter, std::uint64_t totalWeight)
        : perWeight_{counter / totalWeight}, leftOver_{counter % totalWeight} {}
    std::uint64_t perWeight() const { return perWeight_; }
    std::uint64_t leftOver() const { return leftOver_; }
    /// The share of the next one.
    std::uint64_t take(std::uint32_t weight) {
        const std::uint64_t extra = std::min<std::uint64_t>(leftOver_, weight);
        leftOver_ -= extra;
        return perWeight_ * weight + extra;
    }

private:
    std::uint64_t perWeight_;
    std::uint64_t leftOver_;
};

/// Turns hardware counters into counters of next hops, which it hands to the next-hop mapper.
///
///   input                                  handler                        output
///   stashMountGroup ready                  handleStashReady               every tunnel's counter
///                                                                         in the backlog
///   mesaFlexCounters entry                 handleCounterUpdates           that counter, too, if it
///                                                                         feeds anything exported
///   mesaFlexCounters present               handleCountersPresent          all there are, too
///   flattenFecSet fec entry                handleFlattenFecSetFecUpdates  its tunnel's counter, too
///   walk "CountersMapperSmTask", prio. 4   backlogProcessElem             pelOcFecExportData
///
/// The counter of an entry of a group goes to the one next hop that is that entry. The counter of
/// an IP-in-IP tunnel is shared out over the next hops of its FEC by weight, and again when the FEC
/// changes, since its weights may have.
///
/// An index that no tunnel can have raises a Vel::RangeError: out of a reaction the pump catches
/// and traces it, out of the walk the walk does, and the other counters go on.
///
/// Inputs that the host could not find are null and read as empty.
class CountersMapperSm final : public Kiln::WalkMachine<FlexCounters::CounterIndex> {
public:
    /// Takes nothing in before handleInitialized(), which the factory calls.
    CountersMapperSm(Vel::Ref<Kiln::TaskScheduler> scheduler,
                     Vel::Ref<Stash::MountGroup> stashMountGroup,
                     Vel::Ref<FlexCounters::CounterTable> mesaFlexCounters,
                     Vel::Ref<const FlattenFecSet> flattenFecSet,
                     Vel::Ref<const PelOcNextHopCountersMap> pelOcNextHopCountersMap,
                     Vel::Ref<PelOcFecExportData> pelOcFecExportData,
                     Vel::Ref<AnchorValidatorContext> anchorValidatorCtx);

    void handleInitialized();
    void handleStashReady();
    void handleCounterUpdates(const FlexCounters::CounterIndex& counterIndex);
    /// Entries that were there when the table came are not told one by one.
    void handleCountersPresent();
    void handleFlattenFecSetFecUpdates(const FecId& fecId);
    /// What was handed over is the next-hop mapper's: there is nothing to clean up.
    void handleCleanup() {}

    using WalkMachine::backlogDel;
    using WalkMachine::backlogDelAll;
    using WalkMachine::backlogIs;

    bool initialized() const { return initialized_; }
    /// Times that a tunnel's counter was left out since the weights of its FEC add up to 0.
    std::uint64_t unweightedSprays() const { return unweightedSprays_; }

private:
    void backlogProcessElem(const FlexCounters::CounterIndex& counterIndex) override;
    void processNHGCounterUpdate(const PickToOcNextHopIds& pickToOcNextHopIds,
                                 FlexCounters::CounterIndex counterIndex);
    void processIpInIpTunnelCounterUpdate(Tunnel::TunnelTable::TunnelId tunnelId,
                                          FlexCounters::CounterIndex counterIndex);
    /// Null when it is not in the set or cannot be read now.
    Vel::Ref<const Stash::FlattenFec> tunnelFec(Tunnel::TunnelTable::TunnelId tunnelId) const;
    /// Puts the tunnels of a few FECs into the backlog; answers whether there are more FECs.
    bool sweepFecs();
    /// What has been counted; all zero when there is no such counter.
    FlexCounters::MesaFlexCounter counter(FlexCounters::CounterIndex counterIndex) const;

    Vel::Ref<Stash::MountGroup> stashMountGroup_;
    Vel::Ref<FlexCounters::CounterTable> mesaFlexCounters_;
    Vel::Ref<const FlattenFecSet> flattenFecSet_;
    Vel::Ref<const PelOcNextHopCountersMap> pelOcNextHopCountersMap_;
    Vel::Ref<PelOcFecExportData> pelOcFecExportData_;  // output
    Vel::Ref<AnchorValidatorContext> anchorValidatorCtx_;
    bool initialized_ = false;
    std::optional<FecId> sweptTo_;
    std::uint64_t unweightedSprays_ = 0;
    Vel::Subscription onStashReady_;
    Vel::Subscription onCounter_;
    Vel::Subscription onCountersPresent_;
    Vel::Subscription onFec_;
};

/// A machine that is initialised. Takes the constructor's arguments.
template <class... Args>
Vel::Ref<CountersMapperSm> countersMapperSmFactory(Args&&... args) {
    auto machine = Vel::make<CountersMapperSm>(std::forward<Args>(args)...);
    machine->handleInitialized();
    return machine;
}

}  // namespace Pel::Oc

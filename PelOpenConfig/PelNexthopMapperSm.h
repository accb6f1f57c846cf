#pragma once

#include "PelOpenConfig/PelAnchorValidatorContext.h"
#include "PelOpenConfig/PelOcFecExportData.h"
#include "model/Aft/NextHopContainer.h"
#include "model/Aft/NextHopCountersContainer.h"
#include "model/Counters/NexthopGroupEntryToCounterKeyTable.h"
#include "model/Counters/PelOcNextHopCountersMap.h"
#include "model/Fec/FlattenFecSet.h"
#include "model/Readiness/FecReadyTrackingState.h"
#include "model/Readiness/FlattenFecSetReadyStatus.h"
#include "model/Vrf/VrfIdMap.h"
#include "model/Vxlan/VtiStatusDir.h"
#include "platform/Kiln/WalkMachine.h"

namespace Pel::Stash {
class MountGroup;
struct FlattenFecNextHop;
}  // namespace Pel::Stash

namespace Pel::Oc {

/// Feature toggles, each read once per process on first use; default on.
bool toggleOCNextHopAftVxlanEncapHeaderEnabled();  ///< "PelL3Unicast.json"
bool toggleOCNhDecapAndFallbackVrfEnabled();       ///< "PelOpenConfig.json"
bool toggleOCNHGContentStreamingTtlTosEnabled();   ///< "PelOpenConfig.json"

/// Turns each next hop of the flattened FEC set into one AFT next hop and keeps it current.
///
///   input                                    handler              output
///   stashMountGroup ready                    handleStashReady     every next hop in the backlog
///   flattenFecSet nextHop entry              handleNextHop        that next hop in the backlog
///   flattenFecSetReadyStatus fecReady        handleFecReady       fecReadyState.nhReady = true
///   walk "NexthopMapperSmTask", priority 3   backlogProcessElem   nextHopSet, nextHopCounterSet
///   owner lets go                            handleCleanup        nextHopSet and counters map empty
///
/// nhReady rises at the first moment when the set is complete and all of it has been mapped; it
/// never falls here. The only writer of nextHopSet. Inputs that the host could not find are null
/// and read as empty. PENDING.md has what is not built yet.
///
/// A next hop whose element ends without a change of its entry (it cannot be read, its label stack
/// is too deep, or it left before it was mapped) is told as processed, so that a group does not
/// wait for it for ever.
class NexthopMapperSm final : public Kiln::WalkMachine<Stash::OcNextHopIndex> {
public:
    NexthopMapperSm(
        Vel::Ref<Kiln::TaskScheduler> scheduler,
        Vel::Ref<Stash::MountGroup> stashMountGroup,
        Vel::Ref<const FlattenFecSet> flattenFecSet,
        Vel::Ref<const FlattenFecSetReadyStatus> flattenFecSetReadyStatus,
        Vel::Ref<OcApi::NextHopContainer> nextHopSet,
        Vel::Ref<FecReadyTrackingState> fecReadyState,
        Vel::Ref<OcApi::NextHopCountersContainer> nextHopCounterSet,
        Vel::Ref<PelOcFecExportData> pelOcFecExportData,
        Vel::Ref<AnchorValidatorContext> anchorValidatorCtx,
        Vel::Ref<PelOcNextHopCountersMap> pelOcNextHopCountersMap,
        Vel::Ref<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable> counterKeyTable,
        Vel::Ref<const Vxlan::VtiStatusDir> vxlanVtiStatusDir,
        Vel::Ref<Vrf::VrfIdMap::Status> vrfIdMap);
    ~NexthopMapperSm() override;

    void handleInitialized();
    void handleStashReady();
    void handleNextHop(const Stash::OcNextHopIndex& nhId);
    void handleFecReady();
    /// Empties what this machine wrote; its owner calls it when it lets go.
    void handleCleanup();

private:
    void backlogProcessElem(const Stash::OcNextHopIndex& nhId) override;
    void elementFailed(const Stash::OcNextHopIndex& nhId) override;
    void walkEnded() override;

    /// Null when the next hop cannot be read now.
    Vel::Ref<const Stash::FlattenFecNextHop> read(Stash::OcNextHopIndex nhId) const;
    /// All but the network instances. Raises a Vel::RangeError for a label stack that is too deep.
    OcApi::NextHop build(OcApi::NextHopIndex index, const Stash::FlattenFecNextHop& from) const;
    /// The VRF's name, nothing for VRF id 0. False when the id is not known.
    bool networkInstance(Vrf::VrfId vrfId, Nexo::InternedName& to) const;
    void countersMapDelAll();

    Vel::Ref<Stash::MountGroup> stashMountGroup_;
    Vel::Ref<const FlattenFecSet> flattenFecSet_;
    Vel::Ref<const FlattenFecSetReadyStatus> flattenFecSetReadyStatus_;
    Vel::Ref<OcApi::NextHopContainer> nextHopSet_;                 // output; nobody else writes it
    Vel::Ref<FecReadyTrackingState> fecReadyState_;                // output: nhReady
    Vel::Ref<OcApi::NextHopCountersContainer> nextHopCounterSet_;  // output
    Vel::Ref<PelOcFecExportData> pelOcFecExportData_;
    Vel::Ref<AnchorValidatorContext> anchorValidatorCtx_;
    Vel::Ref<PelOcNextHopCountersMap> pelOcNextHopCountersMap_;  // output; nobody else writes it
    Vel::Ref<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable> counterKeyTable_;
    Vel::Ref<const Vxlan::VtiStatusDir> vxlanVtiStatusDir_;
    Vel::Ref<Vrf::VrfIdMap::Status> vrfIdMap_;
    Vel::Subscription onStashReady_;
    Vel::Subscription onNextHop_;
    Vel::Subscription onFecReady_;
};

/// Takes the constructor's arguments.
template <class... Args>
Vel::Ref<NexthopMapperSm> NexthopMapperSmIs(Args&&... args) {
    return Vel::make<NexthopMapperSm>(std::forward<Args>(args)...);
}

}  // namespace Pel::Oc

#pragma once

#include "PelOpenConfig/PelAnchorValidatorContext.h"
#include "PelOpenConfig/PelNexthopCounters.h"
#include "PelOpenConfig/PelNexthopVxlanIndexes.h"
#include "PelOpenConfig/PelNexthopVxlanRequeue.h"
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
/// "PelL3Unicast.json". Off: VXLAN next hops are exported like any other, and changes of VXLAN
/// tunnel interfaces concern nobody.
bool toggleOCNextHopAftVxlanEncapHeaderEnabled();
/// "PelOpenConfig.json". Off: no network instance is exported.
bool toggleOCNhDecapAndFallbackVrfEnabled();
/// "PelOpenConfig.json". Off: UDP headers are exported without their TTL (they carry no TOS).
bool toggleOCNHGContentStreamingTtlTosEnabled();

/// Turns each next hop of the flattened FEC set into one AFT next hop and keeps it current.
///
///   input                                    handler                output
///   stashMountGroup ready                    handleStashReady       every next hop in the backlog
///   flattenFecSet nextHop entry              handleNextHop          that next hop in the backlog
///   flattenFecSetReadyStatus fecReady        handleFecReady         fecReadyState.nhReady = true
///   vxlanVtiStatusDir VTEP address           handleVtepAddrChange   the VTI's in the backlog
///   vxlanVtiStatusDir VNI of a VLAN          handleVlanVniMapChange the VTI's on the VLAN, too
///   counterKeyTable entry                    handleCounterKeyTableUpdate      counters map
///   counterKeyTable present                  handleCounterKeyTablePresent     every next hop in
///                                                                             the backlog
///   pelOcFecExportData nhCountersUpdate      handleNextHopCountersUpdate      nextHopCounterSet
///   walk "NexthopMapperSmTask", priority 3   backlogProcessElem     nextHopSet, nextHopCounterSet,
///                                                                   counters map
///   owner lets go                            handleCleanup          nextHopSet, counters map empty
///
/// Encapsulation headers and the VXLAN indexes are steps of the mapping of an element, in files of
/// their own, and so are the counters. A VXLAN next hop is in the indexes as it is exported.
///
/// nhReady rises at the first moment when the set is complete and all of it has been mapped; it
/// never falls here. The only writer of nextHopSet. Inputs that the host could not find are null
/// and read as empty.
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
    /// The next hops get into the backlog a few at a time, as the walk comes to them.
    void handleVtepAddrChange(const Nexo::IntfId& vti, Nexo::V4V6 family);
    void handleVlanVniMapChange(const Nexo::IntfId& vti, Nexo::ExtendedVlanId vlan);
    /// The counter of an entry of a group is another one, or is none any more.
    void handleCounterKeyTableUpdate(const NexthopGroupEntryCounterKey& nhgeck);
    /// Entries that were there when the table came are not told one by one.
    void handleCounterKeyTablePresent();
    /// Takes counters of any next hop; of one that is not exported they wait for it.
    void handleNextHopCountersUpdate(NhCounters counters);
    /// Empties what this machine wrote, but for the counters of next hops; its owner calls it when
    /// it lets go.
    void handleCleanup();

    /// Links a next hop to the counter of the entry of a group that it is.
    void addToOcNextHopCountersMap(NexthopGroupId nhgId,
                                   NexthopGroupEntryIndex entryId,
                                   Stash::OcNextHopIndex nhId);
    /// Takes a next hop's links out, with the flag also the one from its entry of a group.
    void deleteFromOcNextHopCountersMap(Stash::OcNextHopIndex nhId, bool withNhgeck);
    /// Shows what is known of a next hop's counters, if it is exported.
    void setOcNextHopCounters(Stash::OcNextHopIndex nhId);

    const NexthopCounters& nhCounters() const { return nhCounters_; }
    const NexthopVxlanIndexes& vxlanIndexes() const { return vxlanIndexes_; }

private:
    void backlogProcessElem(const Stash::OcNextHopIndex& nhId) override;
    void elementFailed(const Stash::OcNextHopIndex& nhId) override;
    void walkEnded() override;

    /// Null when the next hop cannot be read now.
    Vel::Ref<const Stash::FlattenFecNextHop> read(const FlattenNextHopEntry& entry) const;
    /// All but the network instances. Raises a Vel::RangeError for a label stack that is too deep.
    OcApi::NextHop build(OcApi::NextHopIndex index, const Stash::FlattenFecNextHop& from) const;
    /// The VRF's name, nothing for VRF id 0. False when the id is not known.
    bool networkInstance(Vrf::VrfId vrfId, Nexo::InternedName& to) const;
    /// The VXLAN header in place of all others, and the index entries; or, for a next hop that
    /// carries no VXLAN, none of them.
    void vxlanIs(const Stash::FlattenFecNextHop& from,
                 Stash::OcNextHopIndex nhId,
                 OcApi::NextHop& to);
    /// Takes the next hop out of the VXLAN indexes, if it is there.
    void vxlanInfoDel(Stash::OcNextHopIndex nhId);
    void handleVlanVni(const Nexo::IntfId& vti, std::uint32_t vlan);
    void requeueIs(const VxlanChange& change);
    /// All that are in the set, and what is left of others that went while nobody listened.
    void backlogAddEveryNextHop();
    /// Makes the entry of a group the next hop's own: whatever else either of the two was linked to
    /// is so no longer.
    void nhgeckIs(const NexthopGroupEntryCounterKey& nhgeck, Stash::OcNextHopIndex nhId);
    /// The next hop has no counter of its own any more.
    void counterDel(Stash::OcNextHopIndex nhId);
    /// Shows counters, unless their next hop is not exported.
    bool countersShown(const NhCounters& counters);
    void countersMapDelAll();
    void subscribeToCounters();

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
    NexthopCounters nhCounters_;
    /// Next hops in nhgeckToOcNextHopId whose entry of a group has no counter.
    absl::btree_map<Stash::OcNextHopIndex, NexthopGroupEntryCounterKey> uncounted_;
    NexthopVxlanIndexes vxlanIndexes_;
    NexthopVxlanRequeue vxlanRequeue_{vxlanIndexes_};
    Vel::Subscription onStashReady_;
    Vel::Subscription onNextHop_;
    Vel::Subscription onFecReady_;
    Vel::Subscription onVtepAddr_;
    Vel::Subscription onVlanVni_;
    Vel::Subscription onCounterKey_;
    Vel::Subscription onCounterKeysPresent_;
    Vel::Subscription onNhCounters_;
};

/// Takes the constructor's arguments.
template <class... Args>
Vel::Ref<NexthopMapperSm> NexthopMapperSmIs(Args&&... args) {
    return Vel::make<NexthopMapperSm>(std::forward<Args>(args)...);
}

}  // namespace Pel::Oc

#include "PelOpenConfig/PelAftExportRootSm.h"

#include "PelOpenConfig/ReleaseSm.h"
#include "platform/Blink/Trace.h"
#include "platform/Stash/Set.h"

BLINK_TRACE_HANDLE("PelAftExportRootSm");

namespace Pel::Oc {

AftExportRootSm::AftExportRootSm(
    Vel::Ref<const Tolo::Config> toloConfig,
    Vel::Ref<OcApi::AftContainer> aftContainer,
    Vel::Ref<Hubdb::EntityManager> entityManager,
    Vel::Ref<Kiln::TaskScheduler> scheduler,
    Vel::Ref<Stash::MountGroup> stashMountGroup,
    Vel::Ref<const FlattenFecSet> flattenFecSet,
    Vel::Ref<const FlattenFecSetReadyStatus> flattenFecSetReadyStatus,
    Vel::Ref<AnchorValidatorContext> anchorValidatorCtx,
    Vel::Ref<PelOcFecExportData> pelOcFecExportData,
    Vel::Ref<PelOcNextHopCountersMap> pelOcNextHopCountersMap,
    Vel::Ref<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable> counterKeyTable,
    Vel::Ref<const Vxlan::VtiStatusDir> vxlanVtiStatusDir,
    Vel::Ref<const Vel::Dir> allVrfGatedFibReadyDir,
    Vel::Ref<Vrf::VrfIdMap::Status> vrfIdMap)
    : toloConfig_{std::move(toloConfig)},
      aftContainer_{std::move(aftContainer)},
      entityManager_{std::move(entityManager)},
      scheduler_{std::move(scheduler)},
      stashMountGroup_{std::move(stashMountGroup)},
      flattenFecSet_{std::move(flattenFecSet)},
      flattenFecSetReadyStatus_{std::move(flattenFecSetReadyStatus)},
      anchorValidatorCtx_{std::move(anchorValidatorCtx)},
      pelOcFecExportData_{std::move(pelOcFecExportData)},
      pelOcNextHopCountersMap_{std::move(pelOcNextHopCountersMap)},
      counterKeyTable_{std::move(counterKeyTable)},
      vxlanVtiStatusDir_{std::move(vxlanVtiStatusDir)},
      allVrfGatedFibReadyDir_{std::move(allVrfGatedFibReadyDir)},
      vrfIdMap_{std::move(vrfIdMap)} {
    lumoControl_.scheduler = scheduler_;
    handleInitialized();
}

AftExportRootSm::~AftExportRootSm() {
    if (smsInitialized_) { smsDel(); }
}

void AftExportRootSm::handleInitialized() {
    TRACE9("");
    initialized_ = true;
    const bool enabled = toloConfig_ && toloConfig_->aftExportEnabled();
    if (enabled == smsInitialized_) { return; }
    if (enabled) {
        TRACE9("Enabled");
        smsIs();
    } else {
        TRACE9("Disabled");
        smsDel();
    }
}

/// The readiness record comes before every machine that reads or writes it, the next-hop mapper
/// before the group mapper.
void AftExportRootSm::smsIs() {
    fecReadyState_ = Vel::make<FecReadyTrackingState>();
    nextHopMapperSm_ = NexthopMapperSmIs(scheduler_,
                                         stashMountGroup_,
                                         flattenFecSet_,
                                         flattenFecSetReadyStatus_,
                                         aftContainer_->nextHops(),
                                         fecReadyState_,
                                         aftContainer_->nextHopCounters(),
                                         pelOcFecExportData_,
                                         anchorValidatorCtx_,
                                         pelOcNextHopCountersMap_,
                                         counterKeyTable_,
                                         vxlanVtiStatusDir_,
                                         vrfIdMap_);
    fibReadyMapperSm_ =
        fibReadyMapperSmFactory(fecReadyState_, aftContainer_->fibReady(), lumoControl_);
    nextHopGroupMapperSm_ = nexthopGroupMapperSmFactory(scheduler_,
                                                        stashMountGroup_,
                                                        flattenFecSet_,
                                                        flattenFecSetReadyStatus_,
                                                        aftContainer_->nextHopGroups(),
                                                        fecReadyState_,
                                                        anchorValidatorCtx_);
    fibReadyCoordinatorSmV4_ = fibReadyCoordinatorSmFactory(entityManager_,
                                                            scheduler_,
                                                            Nexo::AddressFamily::ipv4,
                                                            fecReadyState_,
                                                            allVrfGatedFibReadyDir_);
    fibReadyCoordinatorSmV6_ = fibReadyCoordinatorSmFactory(entityManager_,
                                                            scheduler_,
                                                            Nexo::AddressFamily::ipv6,
                                                            fecReadyState_,
                                                            allVrfGatedFibReadyDir_);
    smsInitialized_ = true;
}

/// Not the reverse of the creation: what the export says of itself is taken back first, then what
/// refers (groups), then what is referred to (next hops).
void AftExportRootSm::smsDel() {
    release(fibReadyCoordinatorSmV4_);
    release(fibReadyCoordinatorSmV6_);
    release(fibReadyMapperSm_);
    release(nextHopGroupMapperSm_);
    release(nextHopMapperSm_);
    fecReadyState_ = nullptr;
    smsInitialized_ = false;
}

}  // namespace Pel::Oc

#pragma once

#include "PelOpenConfig/LmoSmControl.h"
#include "PelOpenConfig/PelFibReadyMapperSm.h"
#include "PelOpenConfig/PelNexthopGroupMapperSm.h"
#include "PelOpenConfig/PelNexthopMapperSm.h"
#include "PelOpenConfig/PelStateSyncedSm.h"
#include "model/Aft/AftContainer.h"
#include "model/Tolo/Config.h"

namespace Pel::Oc {

/// Decides whether the export runs: creates the readiness record and the mapping machines when the
/// management configuration enables it, and lets go of them when it does not.
///
///   input                     handler             output
///   toloConfig, when asked    handleInitialized   machines present or absent
///
/// It does not react to the configuration: it is read at construction, and again whenever the owner
/// calls handleInitialized(). A missing configuration counts as disabled. Machines are switched off
/// before they clean up what they wrote, so that none reacts to a half-torn-down set. What
/// "stateSynced" holds stays while the export is disabled, and is deleted when it is enabled again.
class AftExportRootSm final : public Vel::Sm {
public:
    AftExportRootSm(
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
        Vel::Ref<Vrf::VrfIdMap::Status> vrfIdMap);
    ~AftExportRootSm() override;

    void handleInitialized();

    bool initialized() const { return initialized_; }
    /// The machines below exist.
    bool smsInitialized() const { return smsInitialized_; }
    const Vel::Ref<FecReadyTrackingState>& fecReadyState() const { return fecReadyState_; }
    const Vel::Ref<NexthopMapperSm>& nextHopMapperSm() const { return nextHopMapperSm_; }
    const Vel::Ref<FibReadyMapperSm>& fibReadyMapperSm() const { return fibReadyMapperSm_; }
    const Vel::Ref<NexthopGroupMapperSm>& nextHopGroupMapperSm() const {
        return nextHopGroupMapperSm_;
    }
    const Vel::Ref<FibReadyCoordinatorSm>& fibReadyCoordinatorSmV4() const {
        return fibReadyCoordinatorSmV4_;
    }
    const Vel::Ref<FibReadyCoordinatorSm>& fibReadyCoordinatorSmV6() const {
        return fibReadyCoordinatorSmV6_;
    }

private:
    void smsIs();
    void smsDel();

    Vel::Ref<const Tolo::Config> toloConfig_;
    Vel::Ref<OcApi::AftContainer> aftContainer_;
    Vel::Ref<Hubdb::EntityManager> entityManager_;
    Vel::Ref<Kiln::TaskScheduler> scheduler_;
    Vel::Ref<Stash::MountGroup> stashMountGroup_;
    Vel::Ref<const FlattenFecSet> flattenFecSet_;
    Vel::Ref<const FlattenFecSetReadyStatus> flattenFecSetReadyStatus_;
    Vel::Ref<AnchorValidatorContext> anchorValidatorCtx_;
    Vel::Ref<PelOcFecExportData> pelOcFecExportData_;
    Vel::Ref<PelOcNextHopCountersMap> pelOcNextHopCountersMap_;
    Vel::Ref<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable> counterKeyTable_;
    Vel::Ref<const Vxlan::VtiStatusDir> vxlanVtiStatusDir_;
    Vel::Ref<const Vel::Dir> allVrfGatedFibReadyDir_;
    Vel::Ref<Vrf::VrfIdMap::Status> vrfIdMap_;

    bool initialized_ = false;
    bool smsInitialized_ = false;
    Vel::Ref<FecReadyTrackingState> fecReadyState_;
    Vel::Ref<NexthopMapperSm> nextHopMapperSm_;
    Vel::Ref<FibReadyMapperSm> fibReadyMapperSm_;
    Vel::Ref<NexthopGroupMapperSm> nextHopGroupMapperSm_;
    Vel::Ref<FibReadyCoordinatorSm> fibReadyCoordinatorSmV4_;
    Vel::Ref<FibReadyCoordinatorSm> fibReadyCoordinatorSmV6_;
    Lmo::SmControl lumoControl_;
};

/// Takes the constructor's arguments.
template <class... Args>
Vel::Ref<AftExportRootSm> aftExportRootSmFactory(Args&&... args) {
    return Vel::make<AftExportRootSm>(std::forward<Args>(args)...);
}

}  // namespace Pel::Oc

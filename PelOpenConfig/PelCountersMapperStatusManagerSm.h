#pragma once

#include "PelOpenConfig/PelCountersMapperSm.h"
#include "model/Tolo/Config.h"
#include "platform/Hubdb/EntityManager.h"
#include "platform/Mesa/EntityManager.h"

namespace Pel::Oc {

class CountersMapperStatusManagerSm;

/// Is told for the status manager that its mount is complete.
class CountersMapperStatusManagerSmMounter final : public Vel::RefCounted, public Hubdb::Mounter {
public:
    /// The manager outlives it.
    explicit CountersMapperStatusManagerSmMounter(CountersMapperStatusManagerSm& managerSm)
        : managerSm_{managerSm} {}
    const Vel::Ref<Mesa::EntityManager>& shmemEntityManager() const { return shmemEntityManager_; }
    void shmemEntityManagerIs(Vel::Ref<Mesa::EntityManager> entityManager) {
        shmemEntityManager_ = std::move(entityManager);
    }
    /// A failed mount is a broken precondition; there is no second try.
    void doMountsComplete(Hubdb::MountStatus mountStatus,
                          const Vel::Ref<Hubdb::EntityManager>& entityManager) override;

private:
    CountersMapperStatusManagerSm& managerSm_;
    Vel::Ref<Mesa::EntityManager> shmemEntityManager_;
};

/// Mounts the table of the hardware counters and keeps a counters mapper over it, whether the
/// export is enabled or not.
///
///   state     entered by           what exists
///   mounting  handleInitialized()  the mounter
///   running   mountsComplete()     the counters mapper, too
///   ended     handleCleanup()      neither, nor the mount
class CountersMapperStatusManagerSm final : public Vel::Sm {
public:
    CountersMapperStatusManagerSm(Vel::Ref<Hubdb::EntityManager> entityManager,
                                  Vel::Ref<Kiln::TaskScheduler> scheduler,
                                  Vel::Ref<Stash::MountGroup> stashMountGroup,
                                  Vel::Ref<const FlattenFecSet> flattenFecSet,
                                  Vel::Ref<PelOcFecExportData> pelOcFecExportData,
                                  Vel::Ref<const Tolo::Config> toloConfig,
                                  Vel::Ref<AnchorValidatorContext> anchorValidatorCtx,
                                  Vel::Ref<const PelOcNextHopCountersMap> pelOcNextHopCountersMap);
    ~CountersMapperStatusManagerSm() override;

    void handleInitialized();
    /// Mounts the table, or unmounts it.
    void mountMesaTable(bool mount);
    void mountMesa(Mesa::MountGroup& mountGroup, bool mount);
    void mountsComplete();
    void createSm();
    /// The mapper goes before what it reads.
    void handleCleanup();

    const Vel::Ref<CountersMapperStatusManagerSmMounter>& mounter() const { return mounter_; }
    const Vel::Ref<CountersMapperSm>& countersMapperSm() const { return countersMapperSm_; }

private:
    void mounterIs();
    void mounterDel();
    void countersMapperSmDel();

    Vel::Ref<Hubdb::EntityManager> entityManager_;
    Vel::Ref<Kiln::TaskScheduler> scheduler_;
    Vel::Ref<Stash::MountGroup> stashMountGroup_;
    Vel::Ref<const FlattenFecSet> flattenFecSet_;
    Vel::Ref<PelOcFecExportData> pelOcFecExportData_;
    Vel::Ref<const Tolo::Config> toloConfig_;
    Vel::Ref<AnchorValidatorContext> anchorValidatorCtx_;
    Vel::Ref<const PelOcNextHopCountersMap> pelOcNextHopCountersMap_;
    Vel::Ref<CountersMapperStatusManagerSmMounter> mounter_;
    Vel::Ref<Hubdb::MountGroup> completion_;
    Vel::Ref<FlexCounters::CounterTable> counterTable_;
    Vel::Ref<CountersMapperSm> countersMapperSm_;
};

/// Takes the constructor's arguments.
template <class... Args>
Vel::Ref<CountersMapperStatusManagerSm> countersMapperStatusManagerSmFactory(Args&&... args) {
    return Vel::make<CountersMapperStatusManagerSm>(std::forward<Args>(args)...);
}

}  // namespace Pel::Oc

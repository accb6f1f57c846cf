#include "PelOpenConfig/PelCountersMapperStatusManagerSm.h"

#include <utility>

#include "PelOpenConfig/ReleaseSm.h"
#include "platform/Blink/Trace.h"
#include "platform/Stash/Set.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("PelCountersMapperStatusManagerSm");

namespace Pel::Oc {

using FlexCounters::CounterTable;

void CountersMapperStatusManagerSmMounter::doMountsComplete(
    Hubdb::MountStatus mountStatus, const Vel::Ref<Hubdb::EntityManager>& /*entityManager*/) {
    using Hubdb::mountSuccess_;
    VEL_ASSERT_TEXT(mountStatus == mountSuccess_, "mountStatus == Hubdb::mountSuccess_");
    managerSm_.mountsComplete();
}

CountersMapperStatusManagerSm::CountersMapperStatusManagerSm(
    Vel::Ref<Hubdb::EntityManager> entityManager,
    Vel::Ref<Kiln::TaskScheduler> scheduler,
    Vel::Ref<Stash::MountGroup> stashMountGroup,
    Vel::Ref<const FlattenFecSet> flattenFecSet,
    Vel::Ref<PelOcFecExportData> pelOcFecExportData,
    Vel::Ref<const Tolo::Config> toloConfig,
    Vel::Ref<AnchorValidatorContext> anchorValidatorCtx,
    Vel::Ref<const PelOcNextHopCountersMap> pelOcNextHopCountersMap)
    : entityManager_{std::move(entityManager)},
      scheduler_{std::move(scheduler)},
      stashMountGroup_{std::move(stashMountGroup)},
      flattenFecSet_{std::move(flattenFecSet)},
      pelOcFecExportData_{std::move(pelOcFecExportData)},
      toloConfig_{std::move(toloConfig)},
      anchorValidatorCtx_{std::move(anchorValidatorCtx)},
      pelOcNextHopCountersMap_{std::move(pelOcNextHopCountersMap)} {
    handleInitialized();
}

CountersMapperStatusManagerSm::~CountersMapperStatusManagerSm() {
    handleCleanup();
}

void CountersMapperStatusManagerSm::handleInitialized() {
    TRACE9("Handle init");
    mountMesaTable(true);
}

void CountersMapperStatusManagerSm::mountMesaTable(bool mount) {
    const auto mountGroup = Vel::make<Mesa::MountGroup>(entityManager_->sharedMemory());
    if (!mount) {
        mountMesa(*mountGroup, false);
        return;
    }
    TRACE9("Start mounting");
    mounterIs();
    mounter_->shmemEntityManagerIs(entityManager_->sharedMemory());
    completion_ = entityManager_->mountGroup(*mounter_);
    mountMesa(*mountGroup, true);
    mountGroup->close();
    completion_->close(false, "", Kiln::Duration::zero());
}

void CountersMapperStatusManagerSm::mountMesa(Mesa::MountGroup& mountGroup, bool mount) {
    if (mount) {
        TRACE9("Mount the mesa {} table", CounterTable::kPath);
        mountGroup.mount(CounterTable::kPath, CounterTable::kType, Mesa::TableKind::table);
    } else {
        TRACE9("unmount the mesa {} table", CounterTable::kPath);
        mounter_->shmemEntityManager()->entityDel(CounterTable::kPath);
    }
}

void CountersMapperStatusManagerSm::mountsComplete() {
    TRACE9("Mesa table {} mount complete", CounterTable::kPath);
    counterTable_ = mounter_->shmemEntityManager()->entity<CounterTable>(CounterTable::kPath);
    createSm();
}

void CountersMapperStatusManagerSm::createSm() {
    TRACE9("Create CounterMapperSm");
    countersMapperSm_ = countersMapperSmFactory(scheduler_,
                                                stashMountGroup_,
                                                counterTable_,
                                                flattenFecSet_,
                                                pelOcNextHopCountersMap_,
                                                pelOcFecExportData_,
                                                anchorValidatorCtx_);
}

void CountersMapperStatusManagerSm::handleCleanup() {
    if (!mounter_) { return; }
    countersMapperSmDel();
    mountMesaTable(false);
    mounterDel();
}

void CountersMapperStatusManagerSm::mounterIs() {
    mounter_ = Vel::make<CountersMapperStatusManagerSmMounter>(*this);
}

void CountersMapperStatusManagerSm::mounterDel() {
    completion_->cancel();
    completion_ = nullptr;
    mounter_ = nullptr;
}

void CountersMapperStatusManagerSm::countersMapperSmDel() {
    release(countersMapperSm_);
    counterTable_ = nullptr;
}

}  // namespace Pel::Oc

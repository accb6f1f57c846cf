#include "PelOpenConfig/PelNexthopGroupMapperSm.h"

#include <utility>

#include "PelOpenConfig/PelOpenConfigDestash.h"
#include "platform/Blink/Trace.h"
#include "platform/Kiln/FreeInSlices.h"
#include "platform/Stash/Set.h"

BLINK_TRACE_HANDLE("PelNexthopGroupMapperSm");

namespace Pel::Oc {

NexthopGroupMapperSm::NexthopGroupMapperSm(
    Vel::Ref<Kiln::TaskScheduler> scheduler,
    Vel::Ref<Stash::MountGroup> stashMountGroup,
    Vel::Ref<const FlattenFecSet> flattenFecSet,
    Vel::Ref<const FlattenFecSetReadyStatus> flattenFecSetReadyStatus,
    Vel::Ref<OcApi::NextHopGroupContainer> nextHopGroupContainer,
    Vel::Ref<FecReadyTrackingState> fecReadyState,
    Vel::Ref<AnchorValidatorContext> anchorValidatorCtx)
    : WalkMachine{std::move(scheduler), "NexthopGroupMapperSmTask", 3},
      stashMountGroup_{std::move(stashMountGroup)},
      flattenFecSet_{std::move(flattenFecSet)},
      flattenFecSetReadyStatus_{std::move(flattenFecSetReadyStatus)},
      nextHopGroupContainer_{std::move(nextHopGroupContainer)},
      fecReadyState_{std::move(fecReadyState)},
      anchorValidatorCtx_{std::move(anchorValidatorCtx)} {
    handleInitialized();
}

NexthopGroupMapperSm::~NexthopGroupMapperSm() {
    nextHopGroupContainer_->pendingAre(nullptr);
}

void NexthopGroupMapperSm::handleInitialized() {
    TRACE9("Starting");
    onStashReady_ =
        stashMountGroup_->onReady().subscribe(this, &NexthopGroupMapperSm::handleStashReady);
    if (flattenFecSet_) {
        onFec_ = flattenFecSet_->fec().onKey().subscribe(this, &NexthopGroupMapperSm::handleFec);
    }
    if (flattenFecSetReadyStatus_) {
        onFecReady_ = flattenFecSetReadyStatus_->onFecReady().subscribe(
            this, &NexthopGroupMapperSm::handleFecReady);
    }
    nextHopGroupContainer_->pendingAre([this](OcApi::NextHopGroupId id) {
        const FecId fecId{id.value()};
        return backlogMayDraw(fecId) || (flattenFecSet_ && flattenFecSet_->fec().toldLater(fecId));
    });
    handleStashReady();
}

void NexthopGroupMapperSm::handleStashReady() {
    TRACE9("StashMountGroup ready: {}", stashMountGroup_->ready());
    if (!stashMountGroup_->ready() || !flattenFecSet_) { return; }
    backlogAddAll([set = flattenFecSet_](const auto& after) { return set->fec().nextKey(after); });
    // A group whose FEC left the set while nobody listened is found missing by the walk.
    backlogAddAll([groups = nextHopGroupContainer_](const std::optional<FecId>& after) {
        const auto id = groups->nextKey(after ? std::optional{OcApi::NextHopGroupId{after->value()}}
                                              : std::nullopt);
        return id ? std::optional{FecId{id->value()}} : std::nullopt;
    });
    if (!backlogEmpty()) { scheduleWalk(); }
}

void NexthopGroupMapperSm::handleFec(const FecId& fecId) {
    TRACE9("fecId {}", fecId);
    backlogIs(fecId);
    scheduleWalk();
}

void NexthopGroupMapperSm::handleFecReady() {
    const bool fecReady = flattenFecSetReadyStatus_ && flattenFecSetReadyStatus_->fecReady();
    TRACE9("FlattenFecSet fecReady: {}", fecReady);
    if (backlogEmpty() && fecReady) { fecReadyState_->nhgReadyIs(true); }
}

void NexthopGroupMapperSm::walkEnded() {
    if (backlogEmpty() && !fecReadyState_->nhgReady()) { handleFecReady(); }
}

void NexthopGroupMapperSm::backlogProcessElem(const FecId& fecId) {
    TRACE9("fecId to process {}", fecId);
    if (!stashMountGroup_->ready()) {
        TRACE9("Stash not ready");
        return;
    }
    const OcApi::NextHopGroupId id{fecId.value()};
    // An entry that is missing or does not verify reads as the default one.
    const FlattenFecEntry entry = flattenFecSet_->fec().entry(fecId).value_or(FlattenFecEntry{});
    if (FlattenFecEntry::isEq(entry, FlattenFecEntry{})) {
        TRACE7("Deleted");
        nextHopGroupContainer_->nextHopGroupDel(id);
        nextHopGroupContainer_->processedIs(id);
        return;
    }
    if (!entry.topFec) {
        TRACE7("Do not process bottom fecId {}", fecId);
        nextHopGroupContainer_->processedIs(id);
        return;
    }
    TRACE7("Added");
    const auto fec = destashFec(
        entry.fecDedupedRawPtr(), stashMountGroup_->storeManager(), anchorValidatorCtx_->fecAv());
    if (!fec) {
        TRACE5("fec is null");
        nextHopGroupContainer_->processedIs(id);
        return;
    }
    nextHopGroupContainer_->nextHopGroupIs(build(fecId, entry, *fec));
}

void NexthopGroupMapperSm::elementFailed(const FecId& fecId) {
    nextHopGroupContainer_->processedIs(OcApi::NextHopGroupId{fecId.value()});
}

OcApi::NextHopGroup NexthopGroupMapperSm::build(FecId fecId,
                                                const FlattenFecEntry& entry,
                                                const Stash::FlattenFec& fec) {
    OcApi::NextHopGroup group;
    group.id = OcApi::NextHopGroupId{fecId.value()};
    for (std::uint32_t i = 0; i < fec.nextHops(); ++i) {
        const Stash::FlattenFecMember& member = fec.nextHop(i);
        group.nextHops.nextHopInGroupIs({OcApi::NextHopIndex{member.index.value()}, member.weight});
    }
    if (entry.programmedId != 0) { group.programmedId = entry.programmedId; }
    if (!fec.nexthopGroupName().empty()) {
        group.name = fec.nexthopGroupName();
        group.groupAttribute = fec.groupAttribute();
    }
    if (entry.secondFlag) { group.secondFlag = 0x01; }
    return group;
}

void NexthopGroupMapperSm::handleCleanup() {
    TRACE9("Cleanup");
    Kiln::freeInSlices(scheduler(), nextHopGroupContainer_->nextHopGroupDelAll());
}

}  // namespace Pel::Oc

#pragma once

#include "PelOpenConfig/PelAnchorValidatorContext.h"
#include "model/Aft/NextHopGroupContainer.h"
#include "model/Fec/FlattenFecSet.h"
#include "model/Readiness/FecReadyTrackingState.h"
#include "model/Readiness/FlattenFecSetReadyStatus.h"
#include "platform/Kiln/WalkMachine.h"

namespace Pel::Stash {
class FlattenFec;
class MountGroup;
}  // namespace Pel::Stash

namespace Pel::Oc {

/// Turns each top FEC of the flattened FEC set into one AFT next-hop group and keeps it current.
///
///   input                                        handler              output
///   stashMountGroup ready                        handleStashReady     every FEC and group in the
///                                                                     backlog
///   flattenFecSet fec entry                      handleFec            that FEC in the backlog
///   flattenFecSetReadyStatus fecReady            handleFecReady       fecReadyState.nhgReady = true
///   walk "NexthopGroupMapperSmTask", priority 3  backlogProcessElem   nextHopGroupContainer
///   owner lets go                                handleCleanup        nextHopGroupContainer empty
///
/// nhgReady rises at the first moment when the set is complete and all of it has been mapped; it
/// never falls here. The only writer of nextHopGroupContainer. A set that was declared ready while
/// it is empty and before the machine starts gives no walk, so nhgReady waits for the next change.
class NexthopGroupMapperSm final : public Kiln::WalkMachine<FecId> {
public:
    NexthopGroupMapperSm(Vel::Ref<Kiln::TaskScheduler> scheduler,
                         Vel::Ref<Stash::MountGroup> stashMountGroup,
                         Vel::Ref<const FlattenFecSet> flattenFecSet,
                         Vel::Ref<const FlattenFecSetReadyStatus> flattenFecSetReadyStatus,
                         Vel::Ref<OcApi::NextHopGroupContainer> nextHopGroupContainer,
                         Vel::Ref<FecReadyTrackingState> fecReadyState,
                         Vel::Ref<AnchorValidatorContext> anchorValidatorCtx);
    ~NexthopGroupMapperSm() override;

    void handleInitialized();
    void handleStashReady();
    void handleFec(const FecId& fecId);
    void handleFecReady();
    /// Empties what this machine wrote; its owner calls it when it lets go.
    void handleCleanup();

    using WalkMachine::backlogDel;
    using WalkMachine::backlogDelAll;
    using WalkMachine::backlogIs;

private:
    void backlogProcessElem(const FecId& fecId) override;
    void elementFailed(const FecId& fecId) override;
    void walkEnded() override;

    static OcApi::NextHopGroup build(FecId fecId,
                                     const FlattenFecEntry& entry,
                                     const Stash::FlattenFec& fec);

    Vel::Ref<Stash::MountGroup> stashMountGroup_;
    Vel::Ref<const FlattenFecSet> flattenFecSet_;
    Vel::Ref<const FlattenFecSetReadyStatus> flattenFecSetReadyStatus_;
    Vel::Ref<OcApi::NextHopGroupContainer> nextHopGroupContainer_;  // output; nobody else writes it
    Vel::Ref<FecReadyTrackingState> fecReadyState_;                 // output: nhgReady
    Vel::Ref<AnchorValidatorContext> anchorValidatorCtx_;
    Vel::Subscription onStashReady_;
    Vel::Subscription onFec_;
    Vel::Subscription onFecReady_;
};

/// Takes the constructor's arguments.
template <class... Args>
Vel::Ref<NexthopGroupMapperSm> nexthopGroupMapperSmFactory(Args&&... args) {
    return Vel::make<NexthopGroupMapperSm>(std::forward<Args>(args)...);
}

}  // namespace Pel::Oc

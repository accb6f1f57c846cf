#include "PelOpenConfig/PelNexthopMapperSm.h"

#include <utility>

#include "PelOpenConfig/PelNexthopEncapHeaders.h"
#include "PelOpenConfig/PelNexthopMapperTrace.h"
#include "PelOpenConfig/PelOpenConfigDestash.h"
#include "platform/Kiln/FreeInSlices.h"
#include "platform/Stash/Set.h"
#include "platform/Toggle/Toggle.h"

namespace Pel::Oc {

bool toggleOCNextHopAftVxlanEncapHeaderEnabled() {
    static const bool enabled =
        Toggle::getToggleState("PelL3Unicast.json", "OCNextHopAftVxlanEncapHeader", true);
    return enabled;
}

bool toggleOCNhDecapAndFallbackVrfEnabled() {
    static const bool enabled =
        Toggle::getToggleState("PelOpenConfig.json", "OCNhDecapAndFallbackVrf", true);
    return enabled;
}

bool toggleOCNHGContentStreamingTtlTosEnabled() {
    static const bool enabled =
        Toggle::getToggleState("PelOpenConfig.json", "OCNHGContentStreamingTtlTos", true);
    return enabled;
}

NexthopMapperSm::NexthopMapperSm(
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
    Vel::Ref<Vrf::VrfIdMap::Status> vrfIdMap)
    : WalkMachine{std::move(scheduler), "NexthopMapperSmTask", 3},
      stashMountGroup_{std::move(stashMountGroup)},
      flattenFecSet_{std::move(flattenFecSet)},
      flattenFecSetReadyStatus_{std::move(flattenFecSetReadyStatus)},
      nextHopSet_{std::move(nextHopSet)},
      fecReadyState_{std::move(fecReadyState)},
      nextHopCounterSet_{std::move(nextHopCounterSet)},
      pelOcFecExportData_{std::move(pelOcFecExportData)},
      anchorValidatorCtx_{std::move(anchorValidatorCtx)},
      pelOcNextHopCountersMap_{std::move(pelOcNextHopCountersMap)},
      counterKeyTable_{std::move(counterKeyTable)},
      vxlanVtiStatusDir_{std::move(vxlanVtiStatusDir)},
      vrfIdMap_{std::move(vrfIdMap)} {
    handleInitialized();
}

NexthopMapperSm::~NexthopMapperSm() {
    nextHopSet_->pendingAre(nullptr);
}

void NexthopMapperSm::handleInitialized() {
    TRACE9("Starting");
    onStashReady_ = stashMountGroup_->onReady().subscribe(this, &NexthopMapperSm::handleStashReady);
    if (flattenFecSet_) {
        onNextHop_ =
            flattenFecSet_->nextHop().onKey().subscribe(this, &NexthopMapperSm::handleNextHop);
    }
    if (flattenFecSetReadyStatus_) {
        onFecReady_ = flattenFecSetReadyStatus_->onFecReady().subscribe(
            this, &NexthopMapperSm::handleFecReady);
    }
    if (vxlanVtiStatusDir_) {
        onVtepAddr_ = vxlanVtiStatusDir_->onVtepAddr().subscribe(
            this, &NexthopMapperSm::handleVtepAddrChange);
        onVlanVni_ =
            vxlanVtiStatusDir_->onVlanVni().subscribe(this, &NexthopMapperSm::handleVlanVni);
    }
    subscribeToCounters();
    nextHopSet_->pendingAre([this](OcApi::NextHopIndex index) {
        const Stash::OcNextHopIndex nhId{index.value()};
        return backlogMayDraw(nhId) ||
               (flattenFecSet_ && flattenFecSet_->nextHop().toldLater(nhId));
    });
    countersMapDelAll();
    handleStashReady();
}

void NexthopMapperSm::handleStashReady() {
    TRACE9("StashMountGroup ready: {}", stashMountGroup_->ready());
    if (!stashMountGroup_->ready() || !flattenFecSet_) { return; }
    backlogAddEveryNextHop();
    scheduleWalk();
}

void NexthopMapperSm::backlogAddEveryNextHop() {
    backlogAddAll(
        [set = flattenFecSet_](const auto& after) { return set->nextHop().nextKey(after); });
    const auto addLeftOvers = [this](const auto& container) {
        if (container->size() == 0) { return; }
        backlogAddAll([container](const std::optional<Stash::OcNextHopIndex>& after) {
            const auto index = container->nextKey(
                after ? std::optional{OcApi::NextHopIndex{after->value()}} : std::nullopt);
            return index ? std::optional{Stash::OcNextHopIndex{index->value()}} : std::nullopt;
        });
    };
    addLeftOvers(nextHopSet_);
    addLeftOvers(nextHopCounterSet_);
    if (nhCounters_.size() > 0) {
        backlogAddAll([this](const auto& after) { return nhCounters_.nextKey(after); });
    }
}

void NexthopMapperSm::handleNextHop(const Stash::OcNextHopIndex& nhId) {
    TRACE9("nhId {}", nhId.value());
    backlogIs(nhId);
    scheduleWalk();
}

void NexthopMapperSm::handleFecReady() {
    const bool fecReady = flattenFecSetReadyStatus_ && flattenFecSetReadyStatus_->fecReady();
    TRACE9("FlattenFecSet fecReady: {}", fecReady);
    if (!backlogEmpty()) { return; }
    if (!fecReady) { return; }
    fecReadyState_->nhReadyIs(true);
}

void NexthopMapperSm::walkEnded() {
    if (backlogEmpty() && !fecReadyState_->nhReady()) { handleFecReady(); }
}

void NexthopMapperSm::backlogProcessElem(const Stash::OcNextHopIndex& nhId) {
    TRACE9("nhId to process {}", nhId.value());
    if (!stashMountGroup_->ready()) {
        TRACE9("Stash not ready");
        return;
    }
    const OcApi::NextHopIndex index{nhId.value()};
    if (!flattenFecSet_->nextHop().has(nhId)) {
        vxlanInfoDel(nhId);
        deleteFromOcNextHopCountersMap(nhId, true);
        nextHopCounterSet_->nextHopCounterDel(index);
        nhCounters_.del(nhId);
        const bool hadEntry = nextHopSet_->nextHop(index) != nullptr;
        nextHopSet_->nextHopDel(index);
        if (!hadEntry) { nextHopSet_->processedIs(index); }
        TRACE7("Deleted");
        return;
    }
    const auto entry = flattenFecSet_->nextHop().entry(nhId);
    const auto from = entry ? read(*entry) : nullptr;  // none: its bytes do not verify
    if (!from) {
        TRACE5("Nexthop null");
        nextHopSet_->processedIs(index);
        return;
    }
    OcApi::NextHop to = build(index, *from);
    if (toggleOCNhDecapAndFallbackVrfEnabled()) {
        to.decapsulateHeader = static_cast<OcApi::EncapHeaderType>(from->decapHeader);
        if (!networkInstance(from->decapVrfId, to.decapNetworkInstance)) {
            TRACE5("No entry for {} in vrfIdToName map", from->decapVrfId.value());
        }
        if (!networkInstance(from->fallbackVrfId, to.fallbackNetworkInstance)) {
            TRACE5("No entry for {} in vrfIdToName map", from->fallbackVrfId.value());
        }
    }
    to.encapHeaders = encapHeadersOf(*from);
    TRACE7("Adding the encapHeaders to the next hop object");
    if (toggleOCNextHopAftVxlanEncapHeaderEnabled()) { vxlanIs(*from, nhId, to); }
    nextHopSet_->nextHopIs(std::move(to));
    setOcNextHopCounters(nhId);
    addToOcNextHopCountersMap(entry->nhgId, entry->nhgEntryId, nhId);
    TRACE7("Added");
}

void NexthopMapperSm::vxlanIs(const Stash::FlattenFecNextHop& from,
                              Stash::OcNextHopIndex nhId,
                              OcApi::NextHop& to) {
    if (!from.vxlan) {
        vxlanInfoDel(nhId);
        return;
    }
    const Nexo::IntfId& vti = from.vxlan->vti;
    PEL_TRACE_OF(7,
                 "backlogProcessElem",
                 "VxLAN Encap to process, VLAN: {}, VTI: {}",
                 from.vxlan->vlan,
                 vti);
    const NextHopVxlanInfo info{vti, boundedVlan(from.vxlan->vlan)};
    const NextHopVxlanInfo* const indexed = vxlanIndexes_.nextHopVxlanInfo(nhId);
    if (indexed == nullptr || *indexed != info) {
        vxlanInfoDel(nhId);
        vxlanIndexes_.nextHopIs(nhId, info);
    }
    to.encapHeaders =
        vxlanHeader(vxlanVtiStatusDir_ ? vxlanVtiStatusDir_->vtiStatus(vti) : nullptr, info.vlanId);
}

void NexthopMapperSm::vxlanInfoDel(Stash::OcNextHopIndex nhId) {
    const NextHopVxlanInfo* const info = vxlanIndexes_.nextHopVxlanInfo(nhId);
    if (info == nullptr) { return; }
    PEL_TRACE_OF(7,
                 "backlogProcessElem",
                 "Detected VxLAN Encap info to remove from supporting collections: nhID: {}, "
                 "VTI ID: {}, VLAN ID: {}",
                 nhId.value(),
                 info->vtiId,
                 info->vlanId);
    vxlanIndexes_.nextHopDel(nhId);
}

void NexthopMapperSm::handleVtepAddrChange(const Nexo::IntfId& vti, Nexo::V4V6 /*family*/) {
    if (!toggleOCNextHopAftVxlanEncapHeaderEnabled()) { return; }
    TRACE9("vtiId to process {}", vti);
    if (!vxlanIndexes_.vtiToNextHopIdMap().contains(vti)) {
        TRACE9("vtiToNextHopIdMap does not contain this vtiId, bailing out");
        return;
    }
    requeueIs({vti, std::nullopt});
}

void NexthopMapperSm::handleVlanVni(const Nexo::IntfId& vti, std::uint32_t vlan) {
    if (vlan > Nexo::ExtendedVlanId::kMax) {  // no next hop is ever looked up there
        TRACE5("{}: {} is no VLAN, the change of its VNI is left out", vti, vlan);
        return;
    }
    handleVlanVniMapChange(vti, Nexo::ExtendedVlanId{vlan});
}

void NexthopMapperSm::handleVlanVniMapChange(const Nexo::IntfId& vti, Nexo::ExtendedVlanId vlan) {
    if (!toggleOCNextHopAftVxlanEncapHeaderEnabled()) { return; }
    TRACE9("vtiId, vlanId to process {}; {}", vti, vlan);
    if (!vxlanIndexes_.vlanToNextHopIdMap().contains(vlan)) {
        TRACE9("vlanToNextHopIdMap does not contain this vtiId, bailing out");
        return;
    }
    requeueIs({vti, vlan});
}

void NexthopMapperSm::requeueIs(const VxlanChange& change) {
    vxlanRequeue_.changeIs(change);
    backlogFeedIs([this] {
        return vxlanRequeue_.step([this](const VxlanChange& of, Stash::OcNextHopIndex nhId) {
            if (of.vlan) {
                PEL_TRACE_OF(9, "handleVlanVniMapChange", "NH ID to process {}", nhId.value());
            } else {
                PEL_TRACE_OF(9, "handleVtepAddrChange", "NH ID to process {}", nhId.value());
            }
            backlogIs(nhId);
        });
    });
    scheduleWalk();
}

void NexthopMapperSm::elementFailed(const Stash::OcNextHopIndex& nhId) {
    nextHopSet_->processedIs(OcApi::NextHopIndex{nhId.value()});
}

Vel::Ref<const Stash::FlattenFecNextHop> NexthopMapperSm::read(
    const FlattenNextHopEntry& entry) const {
    return destashNextHop(entry.nextHopDedupedRawPtr(),
                          stashMountGroup_->storeManager(),
                          anchorValidatorCtx_->nhAv());
}

OcApi::NextHop NexthopMapperSm::build(OcApi::NextHopIndex index,
                                      const Stash::FlattenFecNextHop& from) const {
    OcApi::NextHop to;
    to.index = index;
    to.interface = from.interface.parent();
    to.subinterface = from.interface.subinterface();
    if (!from.address.isZero()) { to.ipAddress = from.address; }
    if (!from.mac.isZero()) { to.macAddress = from.mac; }
    for (std::uint32_t i = 0; i < from.labels.labels(); ++i) {
        to.pushedMplsLabelStack.push(from.labels.label(Nexo::MplsStackEntryIndex{i}));
    }
    to.popTopLabel = from.popTopLabel;
    return to;
}

bool NexthopMapperSm::networkInstance(Vrf::VrfId vrfId, Nexo::InternedName& to) const {
    if (!vrfId) { return true; }
    const auto entry = vrfIdMap_ ? vrfIdMap_->read(vrfId) : std::nullopt;
    if (entry) { to = Nexo::InternedName{entry->vrfName.stringValue()}; }
    return entry.has_value();
}

void NexthopMapperSm::handleCleanup() {
    TRACE9("Cleanup");
    Kiln::freeInSlices(scheduler(), nextHopSet_->nextHopDelAll());
    countersMapDelAll();
    Kiln::freeInSlices(scheduler(), nhCounters_.delAll());
}

}  // namespace Pel::Oc

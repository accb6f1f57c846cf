// The counters of the next-hop mapper: which hardware counter feeds which next hop, and the values
// that come back.

#include <utility>

#include "PelOpenConfig/PelNexthopMapperSm.h"
#include "PelOpenConfig/PelNexthopMapperTrace.h"
#include "platform/Kiln/FreeInSlices.h"
#include "platform/Stash/Set.h"

namespace Pel::Oc {

void NexthopMapperSm::subscribeToCounters() {
    if (counterKeyTable_) {
        onCounterKey_ = counterKeyTable_->onKey().subscribe(
            this, &NexthopMapperSm::handleCounterKeyTableUpdate);
        onCounterKeysPresent_ = counterKeyTable_->onPresent().subscribe(
            this, &NexthopMapperSm::handleCounterKeyTablePresent);
    }
    onNhCounters_ = pelOcFecExportData_->onNhCountersUpdate().subscribeAs(
        this, [this](const NhCounters& /*previous*/) {
            handleNextHopCountersUpdate(pelOcFecExportData_->nhCountersUpdate());
        });
}

void NexthopMapperSm::addToOcNextHopCountersMap(NexthopGroupId nhgId,
                                                NexthopGroupEntryIndex entryId,
                                                Stash::OcNextHopIndex nhId) {
    TRACE9("nextHopId {} with nhgId {}, entryId {} to add to map", nhId.value(), nhgId, entryId);
    const NexthopGroupEntryCounterKey nhgeck{nhgId, entryId};
    nhgeckIs(nhgeck, nhId);
    const auto found = counterKeyTable_ ? counterKeyTable_->read(nhgeck) : std::nullopt;
    const auto key = found.value_or(Routing::NexthopGroup::CounterKeyEntry{});
    TRACE9("counterIndex {}", key.counterIndex);
    if (!key.valid()) {
        TRACE9("invalid counterIndex");
        counterDel(nhId);
        uncounted_[nhId] = nhgeck;
        return;
    }
    deleteFromOcNextHopCountersMap(nhId, false);
    uncounted_.erase(nhId);
    const auto pick = PelOcNextHopCountersMap::pickOf(FlexCounters::CounterIndex{key.counterIndex});
    pelOcNextHopCountersMap_->ocNextHopIdToPickAndNhgeckIs(nhId) = {pick, nhgeck};
    pelOcNextHopCountersMap_->pickToOcNextHopIdsIs(pick).ocNextHopIdSetIs(nhId);
    TRACE9("pick entry {}", pick);
}

void NexthopMapperSm::nhgeckIs(const NexthopGroupEntryCounterKey& nhgeck,
                               Stash::OcNextHopIndex nhId) {
    const auto* const owner = pelOcNextHopCountersMap_->nhgeckToOcNextHopId().find(nhgeck);
    if (owner != nullptr && owner->ocNextHopId == nhId) { return; }
    if (owner != nullptr) {
        // An entry of a group that was given to another next hop before the first one's deletion.
        const Stash::OcNextHopIndex loser = owner->ocNextHopId;
        counterDel(loser);
        uncounted_.erase(loser);
    }
    const auto* const linked = pelOcNextHopCountersMap_->ocNextHopIdToPickAndNhgeck().find(nhId);
    const auto uncounted = uncounted_.find(nhId);
    if (linked != nullptr) {
        pelOcNextHopCountersMap_->nhgeckToOcNextHopIdDel(linked->nhgeck());
    } else if (uncounted != uncounted_.end()) {
        pelOcNextHopCountersMap_->nhgeckToOcNextHopIdDel(uncounted->second);
    }
    pelOcNextHopCountersMap_->nhgeckToOcNextHopIdIs(nhgeck).ocNextHopId = nhId;
}

void NexthopMapperSm::counterDel(Stash::OcNextHopIndex nhId) {
    if (pelOcNextHopCountersMap_->ocNextHopIdToPickAndNhgeck().find(nhId) != nullptr) {
        deleteFromOcNextHopCountersMap(nhId, false);
    }
    const OcApi::NextHopIndex index{nhId.value()};
    if (const OcApi::NextHopCounter* const shown = nextHopCounterSet_->nextHopCounter(index)) {
        nhCounters_.is({nhId, shown->packetsForwarded, shown->octetsForwarded},
                       [](Stash::OcNextHopIndex) { return true; });
        nextHopCounterSet_->nextHopCounterDel(index);
    }
}

void NexthopMapperSm::deleteFromOcNextHopCountersMap(Stash::OcNextHopIndex nhId, bool withNhgeck) {
    PelOcNextHopCountersMap& map = *pelOcNextHopCountersMap_;
    const auto* const found = map.ocNextHopIdToPickAndNhgeck().find(nhId);
    if (found == nullptr) {
        TRACE9("nextHopId {} not present in map", nhId.value());
        const auto uncounted = uncounted_.find(nhId);
        if (withNhgeck && uncounted != uncounted_.end()) {
            map.nhgeckToOcNextHopIdDel(uncounted->second);
            uncounted_.erase(uncounted);
        }
        return;
    }
    TRACE9("nextHopId {} to delete from map", nhId.value());
    const OcNextHopIdToPickAndNhgeck links = *found;
    const auto pick = links.pick();
    if (map.pickToOcNextHopIds().find(pick) == nullptr) {
        TRACE9("pick {} not present in map", pick);
    } else {
        PickToOcNextHopIds& ids = map.pickToOcNextHopIdsIs(pick);
        ids.ocNextHopIdSetDel(nhId);
        if (ids.ocNextHopIdSet().empty()) { map.pickToOcNextHopIdsDel(pick); }
    }
    if (withNhgeck) { map.nhgeckToOcNextHopIdDel(links.nhgeck()); }
    map.ocNextHopIdToPickAndNhgeckDel(nhId);
}

void NexthopMapperSm::handleCounterKeyTableUpdate(const NexthopGroupEntryCounterKey& nhgeck) {
    const auto* const found = pelOcNextHopCountersMap_->nhgeckToOcNextHopId().find(nhgeck);
    if (found == nullptr) { return; }
    TRACE9("nhgeck nhgId {} entryId {} updated", nhgeck.nhgId, nhgeck.entryId);
    addToOcNextHopCountersMap(nhgeck.nhgId, nhgeck.entryId, found->ocNextHopId);
}

void NexthopMapperSm::handleCounterKeyTablePresent() {
    const bool ready = stashMountGroup_->ready() && flattenFecSet_;  // else all come with the stash
    if (!ready || !counterKeyTable_->present()) { return; }
    backlogAddEveryNextHop();
    scheduleWalk();
}

void NexthopMapperSm::handleNextHopCountersUpdate(NhCounters counters) {
    if (!stashMountGroup_->ready()) { return; }
    if (countersShown(counters)) {
        nhCounters_.del(counters.key);
        return;
    }
    nhCounters_.is(counters, [this](Stash::OcNextHopIndex nhId) {
        return flattenFecSet_ && flattenFecSet_->nextHop().has(nhId);
    });
}

void NexthopMapperSm::setOcNextHopCounters(Stash::OcNextHopIndex nhId) {
    const NhCounters* const known = nhCounters_.find(nhId);
    if (known != nullptr && countersShown(*known)) { nhCounters_.del(nhId); }
}

bool NexthopMapperSm::countersShown(const NhCounters& counters) {
    const OcApi::NextHopIndex index{counters.key.value()};
    if (!flattenFecSet_ || !flattenFecSet_->nextHop().has(counters.key)) { return false; }
    const OcApi::NextHop* const entry = nextHopSet_->nextHop(index);
    if (entry == nullptr || *entry == OcApi::NextHop{} || !counters.isSet()) { return false; }
    nextHopCounterSet_->nextHopCounterIs(
        {index, counters.packetsForwarded, counters.octetsForwarded});
    return true;
}

void NexthopMapperSm::countersMapDelAll() {
    PelOcNextHopCountersMap& map = *pelOcNextHopCountersMap_;
    Kiln::freeInSlices(scheduler(), map.pickToOcNextHopIdsDelAll());
    Kiln::freeInSlices(scheduler(), map.nhgeckToOcNextHopIdDelAll());
    Kiln::freeInSlices(scheduler(), map.ocNextHopIdToPickAndNhgeckDelAll());
    Kiln::freeInSlices(scheduler(), std::exchange(uncounted_, {}));
}

}  // namespace Pel::Oc

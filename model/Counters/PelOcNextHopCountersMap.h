#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include "model/Counters/PlatformIndependentCounterKey.h"
#include "model/Fec/NexthopGroupEntry.h"
#include "model/Fec/OcNextHopIndex.h"
#include "platform/Vel/Entity.h"

namespace Pel::Oc {

/// The next hops that one hardware counter feeds, in the order of their ids.
class PickToOcNextHopIds {
public:
    const absl::btree_set<Stash::OcNextHopIndex>& ocNextHopIdSet() const { return ids_; }
    void ocNextHopIdSetIs(Stash::OcNextHopIndex id) { ids_.insert(id); }
    void ocNextHopIdSetDel(Stash::OcNextHopIndex id) { ids_.erase(id); }

private:
    absl::btree_set<Stash::OcNextHopIndex> ids_;
};

struct NexthopGroupEntryCounterKeyToOcNextHopId {
    Stash::OcNextHopIndex ocNextHopId;
};

struct OcNextHopIdToPickAndNhgeck {
    Routing::Hardware::PlatformIndependentCounterKey pick;
    NexthopGroupEntryCounterKey nhgeck;
};

/// One collection of the counters map. Nobody reacts to it, so nothing is published.
template <class Key, class Value>
class CountersMapCollection {
public:
    /// Finds or creates; holds until the collection changes.
    Value& is(const Key& key) { return map_[key]; }
    void del(const Key& key) { map_.erase(key); }
    void delAll() { map_.clear(); }
    /// Null when absent; holds until the collection changes.
    const Value* find(const Key& key) const {
        const auto it = map_.find(key);
        return it == map_.end() ? nullptr : &it->second;
    }
    std::size_t size() const { return map_.size(); }

private:
    absl::btree_map<Key, Value> map_;
};

/// Which next hops each hardware counter feeds, and back. Writer: the next-hop mapper; reader: the
/// counters mapper.
class PelOcNextHopCountersMap final : public Vel::Entity {
public:
    using Pick = Routing::Hardware::PlatformIndependentCounterKey;
    PelOcNextHopCountersMap() : Vel::Entity{"pelOcNextHopCountersMap"} {}

    const auto& pickToOcNextHopIds() const { return pickToOcNextHopIds_; }
    PickToOcNextHopIds& pickToOcNextHopIdsIs(const Pick& key) {
        return pickToOcNextHopIds_.is(key);
    }
    void pickToOcNextHopIdsDel(const Pick& key) { pickToOcNextHopIds_.del(key); }
    void pickToOcNextHopIdsDelAll() { pickToOcNextHopIds_.delAll(); }

    const auto& nhgeckToOcNextHopId() const { return nhgeckToOcNextHopId_; }
    NexthopGroupEntryCounterKeyToOcNextHopId& nhgeckToOcNextHopIdIs(
        const NexthopGroupEntryCounterKey& key) {
        return nhgeckToOcNextHopId_.is(key);
    }
    void nhgeckToOcNextHopIdDel(const NexthopGroupEntryCounterKey& key) {
        nhgeckToOcNextHopId_.del(key);
    }
    void nhgeckToOcNextHopIdDelAll() { nhgeckToOcNextHopId_.delAll(); }

    const auto& ocNextHopIdToPickAndNhgeck() const { return ocNextHopIdToPickAndNhgeck_; }
    OcNextHopIdToPickAndNhgeck& ocNextHopIdToPickAndNhgeckIs(Stash::OcNextHopIndex key) {
        return ocNextHopIdToPickAndNhgeck_.is(key);
    }
    void ocNextHopIdToPickAndNhgeckDel(Stash::OcNextHopIndex key) {
        ocNextHopIdToPickAndNhgeck_.del(key);
    }
    void ocNextHopIdToPickAndNhgeckDelAll() { ocNextHopIdToPickAndNhgeck_.delAll(); }

private:
    CountersMapCollection<Pick, PickToOcNextHopIds> pickToOcNextHopIds_;
    CountersMapCollection<NexthopGroupEntryCounterKey, NexthopGroupEntryCounterKeyToOcNextHopId>
        nhgeckToOcNextHopId_;
    CountersMapCollection<Stash::OcNextHopIndex, OcNextHopIdToPickAndNhgeck>
        ocNextHopIdToPickAndNhgeck_;
};

}  // namespace Pel::Oc

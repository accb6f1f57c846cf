#pragma once

#include <absl/container/btree_map.h>

#include <cstdint>
#include <utility>

#include "model/Counters/CounterIndex.h"
#include "model/Counters/OcNextHopIdSet.h"
#include "model/Counters/PlatformIndependentCounterKey.h"
#include "model/Fec/NexthopGroupEntry.h"
#include "model/Fec/OcNextHopIndex.h"
#include "platform/Vel/Entity.h"

namespace Pel::Oc {

/// The next hops that one hardware counter feeds.
class PickToOcNextHopIds {
public:
    const OcNextHopIdSet& ocNextHopIdSet() const { return ids_; }
    void ocNextHopIdSetIs(Stash::OcNextHopIndex id) { ids_.insert(id); }
    void ocNextHopIdSetDel(Stash::OcNextHopIndex id) { ids_.erase(id); }

private:
    OcNextHopIdSet ids_;
};

struct NexthopGroupEntryCounterKeyToOcNextHopId {
    Stash::OcNextHopIndex ocNextHopId;
};

/// A counter and an entry of a group. There may be a million: the small halves of both share eight
/// bytes.
class OcNextHopIdToPickAndNhgeck {
public:
    using Pick = Routing::Hardware::PlatformIndependentCounterKey;
    OcNextHopIdToPickAndNhgeck() = default;
    OcNextHopIdToPickAndNhgeck(const Pick& pick, const NexthopGroupEntryCounterKey& nhgeck)
        : counterIndex_{pick.counterIndex()},
          nhgId_{nhgeck.nhgId},
          entryId_{nhgeck.entryId},
          counterType_{pick.counterType()} {}
    Pick pick() const { return Pick::indexAndTypeToPick(counterIndex_, counterType_); }
    NexthopGroupEntryCounterKey nhgeck() const { return {nhgId_, entryId_}; }

private:
    std::uint64_t counterIndex_ = 0;
    NexthopGroupId nhgId_;
    NexthopGroupEntryIndex entryId_;
    std::uint8_t counterType_ = 0;
};

/// One collection of the counters map. Nobody reacts to it, so nothing is published.
template <class Key, class Value>
class CountersMapCollection {
public:
    using Map = absl::btree_map<Key, Value>;
    /// Finds or creates; holds until the collection changes.
    Value& is(const Key& key) { return map_[key]; }
    void del(const Key& key) { map_.erase(key); }
    /// Answers what was there: a million entries are not freed in one go.
    Map delAll() { return std::exchange(map_, {}); }
    /// Null when absent; holds until the collection changes.
    const Value* find(const Key& key) const {
        const auto it = map_.find(key);
        return it == map_.end() ? nullptr : &it->second;
    }
    std::size_t size() const { return map_.size(); }
    auto begin() const { return map_.begin(); }
    auto end() const { return map_.end(); }

private:
    Map map_;
};

/// Which next hops each hardware counter feeds, and back. Writer: the next-hop mapper; reader: the
/// counters mapper.
class PelOcNextHopCountersMap final : public Vel::Entity {
public:
    using Pick = Routing::Hardware::PlatformIndependentCounterKey;
    /// All counters of next hops are of one type.
    static Pick pickOf(FlexCounters::CounterIndex counterIndex) {
        return Pick::indexAndTypeToPick(counterIndex.value(), kNexthopCounterType);
    }
    PelOcNextHopCountersMap() : Vel::Entity{"pelOcNextHopCountersMap"} {}

    const auto& pickToOcNextHopIds() const { return pickToOcNextHopIds_; }
    PickToOcNextHopIds& pickToOcNextHopIdsIs(const Pick& key) {
        return pickToOcNextHopIds_.is(key);
    }
    void pickToOcNextHopIdsDel(const Pick& key) { pickToOcNextHopIds_.del(key); }
    auto pickToOcNextHopIdsDelAll() { return pickToOcNextHopIds_.delAll(); }

    const auto& nhgeckToOcNextHopId() const { return nhgeckToOcNextHopId_; }
    NexthopGroupEntryCounterKeyToOcNextHopId& nhgeckToOcNextHopIdIs(
        const NexthopGroupEntryCounterKey& key) {
        return nhgeckToOcNextHopId_.is(key);
    }
    void nhgeckToOcNextHopIdDel(const NexthopGroupEntryCounterKey& key) {
        nhgeckToOcNextHopId_.del(key);
    }
    auto nhgeckToOcNextHopIdDelAll() { return nhgeckToOcNextHopId_.delAll(); }

    const auto& ocNextHopIdToPickAndNhgeck() const { return ocNextHopIdToPickAndNhgeck_; }
    OcNextHopIdToPickAndNhgeck& ocNextHopIdToPickAndNhgeckIs(Stash::OcNextHopIndex key) {
        return ocNextHopIdToPickAndNhgeck_.is(key);
    }
    void ocNextHopIdToPickAndNhgeckDel(Stash::OcNextHopIndex key) {
        ocNextHopIdToPickAndNhgeck_.del(key);
    }
    auto ocNextHopIdToPickAndNhgeckDelAll() { return ocNextHopIdToPickAndNhgeck_.delAll(); }

private:
    static constexpr std::uint8_t kNexthopCounterType = 2;

    CountersMapCollection<Pick, PickToOcNextHopIds> pickToOcNextHopIds_;
    CountersMapCollection<NexthopGroupEntryCounterKey, NexthopGroupEntryCounterKeyToOcNextHopId>
        nhgeckToOcNextHopId_;
    CountersMapCollection<Stash::OcNextHopIndex, OcNextHopIdToPickAndNhgeck>
        ocNextHopIdToPickAndNhgeck_;
};

}  // namespace Pel::Oc

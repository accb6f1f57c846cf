#pragma once

#include <cstdint>
#include <optional>

#include "model/Aft/NextHopIndex.h"
#include "platform/Vel/Collection.h"
#include "platform/Vel/Entity.h"
#include "platform/Vel/Fields.h"

namespace Pel::OcApi {

/// Counters of one next hop, since the hardware began to count.
struct NextHopCounter {
    NextHopIndex index;
    std::uint64_t packetsForwarded = 0;
    std::uint64_t octetsForwarded = 0;
    static constexpr auto fields() {
        return Vel::fields(Vel::field("index", &NextHopCounter::index),
                           Vel::field("packetsForwarded", &NextHopCounter::packetsForwarded),
                           Vel::field("octetsForwarded", &NextHopCounter::octetsForwarded));
    }
    friend bool operator==(const NextHopCounter&, const NextHopCounter&) = default;
};

/// Counters by next hop. One writer: the next-hop mapper.
class NextHopCountersContainer final : public Vel::Entity {
public:
    using Vel::Entity::Entity;
    /// Null when absent; valid until the container changes.
    const NextHopCounter* nextHopCounter(NextHopIndex index) const { return counters_.find(index); }
    void nextHopCounterIs(const NextHopCounter& counter) { counters_.set(counter.index, counter); }
    /// Harmless when there is none.
    void nextHopCounterDel(NextHopIndex index) { counters_.erase(index); }
    std::size_t size() const { return counters_.size(); }
    std::optional<NextHopIndex> nextKey(const std::optional<NextHopIndex>& after) const {
        return counters_.nextKey(after);
    }
    Vel::Publisher<const NextHopIndex&>& onNextHopCounter() const { return counters_.onKey(); }
    /// The same, but null when all have gone at once.
    Vel::Publisher<const NextHopIndex*>& onNextHopCounterOrClear() const {
        return counters_.onKeyOrClear();
    }

private:
    Vel::Collection<NextHopIndex, NextHopCounter> counters_;
};

}  // namespace Pel::OcApi

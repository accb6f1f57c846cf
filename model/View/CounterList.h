#pragma once

#include <optional>

#include "model/Aft/NextHopContainer.h"
#include "model/Aft/NextHopCountersContainer.h"
#include "platform/Gale/ListSource.h"

namespace Pel::OcApi {

/// Counters of next hops as entries of a view. One is there while its next hop is, too: it comes
/// after the next hop and goes before it, whichever of the two its writer adds or removes first.
class CounterList : public Gale::ListSource {
public:
    std::optional<Gale::EntryKey> nextKey(
        const std::optional<Gale::EntryKey>& after) const override;
    bool encode(const Gale::EntryKey& key, Gale::EncodedEntry& to) final;

protected:
    CounterList(Vel::Ref<NextHopCountersContainer> counters, Vel::Ref<NextHopContainer> nextHops);

    virtual void write(const NextHopCounter& counter, Gale::PackedNotification& to) const = 0;

private:
    const Vel::Ref<NextHopCountersContainer> counters_;
    const Vel::Ref<NextHopContainer> nextHops_;
    Vel::Subscription onCounter_;
    Vel::Subscription onNextHop_;
};

}  // namespace Pel::OcApi

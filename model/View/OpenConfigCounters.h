#pragma once

#include <memory>

#include "model/View/CounterList.h"
#include "model/View/OpenConfigInstances.h"

namespace Pel::OcApi {

/// The counters of next hops in the OpenConfig view: "afts/counters/next-hops", apart from the next
/// hops themselves and not atomic, so that a count does not send the next hop again.
class OpenConfigCounters final : public CounterList {
public:
    /// `instances` outlives this object.
    OpenConfigCounters(Vel::Ref<NextHopCountersContainer> counters,
                       Vel::Ref<NextHopContainer> nextHops,
                       const OpenConfigInstances& instances);
    ~OpenConfigCounters() override;

    void encodeDelete(const Gale::EntryKey& key,
                      Gale::PackedNotification& notification) const override;

private:
    struct Paths;

    void write(const NextHopCounter& counter, Gale::PackedNotification& to) const override;

    const OpenConfigInstances& instances_;
    const std::unique_ptr<const Paths> paths_;
};

}  // namespace Pel::OcApi

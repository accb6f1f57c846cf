#pragma once

#include "model/View/CounterList.h"
#include "model/View/NativeLeaves.h"
#include "platform/Gale/PathTemplate.h"

namespace Pel::OcApi {

/// The counters of next hops in the native view.
class NativeCounters final : public CounterList {
public:
    /// `leaves` outlive this object.
    NativeCounters(Vel::Ref<NextHopCountersContainer> counters,
                   Vel::Ref<NextHopContainer> nextHops,
                   const NativeLeaves<NextHopCounter>& leaves);

    void encodeDelete(const Gale::EntryKey& key,
                      Gale::PackedNotification& notification) const override;

private:
    void write(const NextHopCounter& counter, Gale::PackedNotification& to) const override;

    const Gale::PathTemplate entry_;
    const Gale::PathTemplate deletion_;
    const NativeLeaves<NextHopCounter>& leaves_;
};

}  // namespace Pel::OcApi

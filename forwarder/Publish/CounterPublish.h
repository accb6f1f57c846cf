#pragma once

#include <absl/functional/function_ref.h>

#include <optional>
#include <string>
#include <vector>

#include "forwarder/Flatten/MemberCounters.h"
#include "forwarder/Publish/CounterRefresh.h"
#include "forwarder/Publish/FlatStore.h"
#include "forwarder/Publish/RetryingCommit.h"
#include "platform/Kiln/Clock.h"

namespace Pel::Forwarder {

/// Brings the traffic of next hops into the store, in transactions of its own, and sees to the rewriting of all counters.
/// A counter is written only beside its next hop: one whose next hop the store does not hold (not yet, or no more) waits for the
/// next poll. A transaction that fails is gone as a whole; what it held waits for the next poll, too, and nothing is
/// written for a second.
///
/// Belongs to one thread, that of Publish, between whose transactions it writes.
class CounterPublish {
public:
    /// Borrows all.
    CounterPublish(MemberCounters& counters,
                   FlatStore& store,
                   Store::Writer& writer,
                   const Kiln::Clock& clock);

    /// Works until nothing is left or `mustYield` says so, which is asked after each transaction. True when there is more
    /// to do at once.
    bool run(absl::FunctionRef<bool()> mustYield);
    /// When run() wants to be called next though nothing has been polled.
    Kiln::TimePoint wakeAt() const { return commit_.wakeAt().value_or(refresh_.wakeAt()); }

    const std::string& failure() const { return commit_.failure(); }
    /// Elements are counters.
    const RetryingCommit::Statistics& statistics() const { return commit_.statistics(); }

private:
    bool writeChanged();
    bool writeAgain();
    bool lookAtPublished();
    bool failed();

    MemberCounters& counters_;
    FlatStore& store_;
    RetryingCommit commit_;
    CounterRefresh refresh_;
    std::vector<OcNextHopNumber> batch_;
};

}  // namespace Pel::Forwarder

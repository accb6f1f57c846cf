#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <cstddef>
#include <cstdint>
#include <optional>

#include "forwarder/Scenario/Change.h"
#include "platform/Kiln/Clock.h"

namespace Pel::Forwarder {

/// The counters of a scenario as time goes on: each counts on at every full second, by its rate and modulo its wrap. Times count from the end of the
/// first publication.
class RunningCounters {
public:
    /// Sets what the item gives, counts the rest up to `now`, and takes over the rates. The item as it is then, with both values.
    CounterItem set(const CounterItem& item, Kiln::Duration now);
    void del(FlexCounters::CounterIndex index);

    /// Appends the counters that have counted on since they last came, up to the list's size `limit`; the rest come the next time.
    void due(Kiln::Duration now, Changes& to, std::size_t limit);
    /// When the next count on; none: never.
    std::optional<Kiln::Duration> nextDue() const;

private:
    struct Running {
        CounterItem item;  ///< the values at `second`
        std::uint64_t second = 0;
    };
    static std::uint64_t fullSeconds(Kiln::Duration now);
    static void advance(Running& counter, std::uint64_t second);

    absl::btree_map<FlexCounters::CounterIndex, Running> counters_;
    absl::btree_set<FlexCounters::CounterIndex> counting_;  // that have a rate
    std::uint64_t second_ = 1;                              // at which those that count are next
    std::optional<FlexCounters::CounterIndex> bookmark_;    // the last that came of it
};

}  // namespace Pel::Forwarder

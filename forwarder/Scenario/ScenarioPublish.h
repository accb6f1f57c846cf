#pragma once

#include <absl/functional/function_ref.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "forwarder/Publish/CounterRefresh.h"
#include "forwarder/Publish/FlatStore.h"
#include "forwarder/Publish/RetryingCommit.h"
#include "forwarder/Scenario/ChangeSource.h"
#include "platform/Kiln/Clock.h"

namespace Pel::Forwarder {

/// Brings a described state into the store, deletes what the store holds besides, declares it ready, and follows with the
/// changes as they become due. In transactions of at most Store::Writer::kMaxRecords records, each in the source's order.
/// What is in the store already is no change; but counters are told again, see CounterRefresh.
///
/// A transaction that fails is gone as a whole: publishing stops there, says so, and the same records are tried again a
/// second later.
///
/// Belongs to one thread. open(), then run() whenever wakeAt() says.
class ScenarioPublish {
public:
    /// Borrows all but the cell id.
    ScenarioPublish(ChangeSource& source,
                    Store::Writer& writer,
                    const Kiln::Clock& clock,
                    unsigned cellId = 1);

    /// Registers the tables and compares what they hold with the source, in one go. Once. "" on success, else what failed.
    std::string open();

    /// Works until nothing is left or `mustYield` says so, which is asked after each transaction. True when there is more
    /// to do at once.
    bool run(absl::FunctionRef<bool()> mustYield);
    /// When there is more to do; none: never, by itself.
    std::optional<Kiln::TimePoint> wakeAt() const;

    /// The beginning has been published as a whole.
    bool ready() const { return phase_ == Phase::changes; }
    /// Why publishing stands still; "" when it does not.
    const std::string& failure() const { return commit_.failure(); }
    const RetryingCommit::Statistics& statistics() const { return commit_.statistics(); }

private:
    enum class Phase : std::uint8_t { description, removal, readiness, changes };
    void compare();
    bool fill();
    bool writeSome();

    ChangeSource& source_;
    Store::Writer& writer_;
    const Kiln::Clock& clock_;
    RetryingCommit commit_;
    CounterRefresh refresh_;
    unsigned cellId_;
    std::unique_ptr<FlatStore> store_;
    Phase phase_ = Phase::description;
    Changes stale_;          // in the store, but not in the source: deletes, last first
    Changes batch_;          // being written
    std::size_t done_ = 0;   // elements of it that are committed
    Kiln::TimePoint began_;  // the end of the beginning
};

}  // namespace Pel::Forwarder

#pragma once

#include <absl/functional/function_ref.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "forwarder/Flatten/Flatten.h"
#include "forwarder/Publish/FlatStore.h"
#include "forwarder/Publish/QuietTables.h"
#include "forwarder/Publish/RetryingCommit.h"
#include "platform/Kiln/Clock.h"

namespace Store {
class Writer;
}

namespace Pel::Forwarder {

/// Brings what Flatten says into the store, in transactions of at most Store::Writer::kMaxRecords records, each in
/// reference order. Readiness follows in a transaction of its own once everything has been written, so that whoever sees it
/// sees the data; and then, table by table, that it has quiesced: nothing in it has changed for the
/// quiet time, and nothing waits to be written. That is said once, and later changes do not take it
/// back: like readiness it means that the first download has come to rest, and a restart leaves both
/// as they are.
///
/// A transaction that fails (a full store, an I/O error) is gone as a whole: publishing stops there, says so, and tries again
/// a second later. What the source has told meanwhile joins what waits, and what makes room goes first: withdrawn routes and
/// VRFs, the FECs that no waiting route still names, and their next hops. Until all has been written transactions are small.
///
/// Belongs to one thread. Start: open(); then, once the source's first download is complete, run() whenever there may be
/// something to do.
class Publish {
public:
    using Statistics = RetryingCommit::Statistics;

    static constexpr std::chrono::seconds kQuietTime{5};

    /// Borrows all but the last two. `quietTime`: how long a table has no change before it is said
    /// to have quiesced; 0: until all has been written.
    Publish(Flatten& flatten,
            Store::Writer& writer,
            const Kiln::Clock& clock,
            unsigned cellId = 1,
            Kiln::Duration quietTime = kQuietTime);

    /// Registers the tables and hands Flatten what an earlier run published. Once. "" on success, else what failed, such
    /// as a store that is another source's; what Flatten was given is not complete then, so start with a new one.
    std::string open(std::string_view source = "kernel");

    /// Works until nothing is left or `mustYield` says so, which is asked after each transaction. True when there is more
    /// to do at once.
    bool run(absl::FunctionRef<bool()> mustYield);
    /// When run() wants to be called next though nothing has changed: after a failure, or for a
    /// table that may be quiet by then.
    std::optional<Kiln::TimePoint> wakeAt() const {
        return commit_.wakeAt() || !ready_ ? commit_.wakeAt() : quiet_.wakeAt();
    }

    /// Where it publishes; after open(), between calls of run().
    FlatStore& store() { return *store_; }

    /// Everything has been published once, and said to be ready.
    bool ready() const { return ready_; }
    /// Why publishing stands still; "" when it does not.
    const std::string& failure() const { return commit_.failure(); }
    const Statistics& statistics() const { return commit_.statistics(); }

private:
    bool writeSome();
    bool writeReadiness();
    bool writeQuiet();
    void takeWhatCame();
    void write(std::size_t element);

    Flatten& flatten_;
    Store::Writer& writer_;
    RetryingCommit commit_;
    QuietTables quiet_;
    unsigned cellId_;
    std::unique_ptr<FlatStore> store_;
    FlatDiff diff_;            // being written
    FlatDiff rest_;            // of what was joined: after it
    std::size_t done_ = 0;     // elements of it that are committed
    bool stuck_ = false;       // a transaction of it has failed
    bool repeatable_ = false;  // and the last one since then has not
    bool joined_ = false;      // and what makes room has been put first
    bool more_ = true;         // Flatten has more
    bool readyDue_ = false;    // VRFs came, or nothing was ever said
    bool ready_ = false;
};

}  // namespace Pel::Forwarder

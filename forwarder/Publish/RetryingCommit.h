#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/Kiln/Clock.h"

namespace Store {
class Writer;
}

namespace Pel::Forwarder {

/// Ends a publisher's transactions, and knows when the next attempt is due after one that failed (a full store, an I/O
/// error). What failed is gone as a whole: the caller writes the same again from wakeAt() on. One thread.
class RetryingCommit {
public:
    struct Statistics {
        std::uint64_t transactions = 0;
        std::uint64_t records = 0;  ///< elements published, as the publisher counts them
        std::uint64_t failures = 0;
    };

    /// Borrows both.
    RetryingCommit(Store::Writer& writer, const Kiln::Clock& clock)
        : writer_{writer}, clock_{clock} {}

    /// Whether the transaction has no room for one more element.
    bool full() const;
    /// Ends the transaction, which held so many elements; one that only read is not counted. False when it failed.
    bool commit(std::size_t elements);
    /// The transaction that has just failed may be repeated without waiting.
    void repeatAtOnce() { wakeAt_.reset(); }
    /// Whether a failure is too recent to try again.
    bool mustWait();
    std::optional<Kiln::TimePoint> wakeAt() const { return wakeAt_; }
    /// Why publishing stands still; "" when it does not.
    const std::string& failure() const { return failure_; }
    const Statistics& statistics() const { return statistics_; }

private:
    Store::Writer& writer_;
    const Kiln::Clock& clock_;
    std::optional<Kiln::TimePoint> wakeAt_;
    std::string failure_;
    Statistics statistics_;
};

}  // namespace Pel::Forwarder

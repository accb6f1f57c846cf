#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "forwarder/Publish/RetryingCommit.h"
#include "forwarder/Publish/StoredCounters.h"
#include "platform/Kiln/Clock.h"

namespace Pel::Forwarder {

/// Tells readers of every counter again once in kParts seconds, less than a minute, so that one that stands still is
/// known to an agent that started later. Evenly spread: which second is a counter's follows from its number. What a pause kept
/// from its second follows as fast as it can be written, each counter once.
class CounterRefresh {
public:
    static constexpr std::uint64_t kParts = 50;

    /// Borrows the clock.
    explicit CounterRefresh(const Kiln::Clock& clock) : clock_{clock}, began_{clock.now()} {}

    /// When the next counters are due.
    Kiln::TimePoint wakeAt() const { return began_ + kSecond * static_cast<std::int64_t>(second_); }
    bool due() const { return clock_.now() >= wakeAt(); }
    /// Puts at most `limit` counters that are due into a transaction of their own. False when it failed: they come again.
    bool write(StoredCounters& counters, RetryingCommit& commit, std::size_t limit);

private:
    static constexpr Kiln::Duration kSecond = std::chrono::seconds{1};

    const Kiln::Clock& clock_;
    Kiln::TimePoint began_;
    std::uint64_t second_ = 1;  // whose counters are next
    std::uint64_t next_ = 0;    // those of lower numbers are done
};

}  // namespace Pel::Forwarder

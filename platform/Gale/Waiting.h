#pragma once

#include "absl/container/btree_map.h"
#include "absl/container/btree_set.h"
#include "platform/Gale/JournalEntry.h"
#include "platform/Gale/ListSource.h"
#include "platform/Kiln/Clock.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace Gale {

/// Entries that name one which is not there yet. They wait until it appears, or until it has been
/// looked at once and is known not to be there, or until their patience is over. An entry that
/// misses several waits for one after the other; one may wait for the next look at itself.
///
/// What is known not to be there is remembered for the latest quarter of a million, so that who
/// comes later does not wait in vain; beyond that only patience helps.
class Waiting final {
public:
    using Waiter = std::pair<ListSource*, EntryKey>;
    using Waiters = absl::btree_set<Waiter>;

    explicit Waiting(Kiln::Duration patience) : patience_(patience) {}

    /// Whether entries wait for one of this lane at all.
    static bool awaited(Lane lane) { return lane == Lane::nextHops || lane == Lane::groups; }

    /// Whether the missing entry is known not to come.
    bool givenUp(const Reference& missing) const { return absent_.contains(missing); }
    /// Whether that has been known for the whole patience.
    bool longGivenUp(const Reference& missing, Kiln::TimePoint now) const;
    void add(const Reference& missing, const Waiter& waiter, Kiln::TimePoint now);
    /// The entry is there, but waits itself: it may come after all.
    void notGivenUp(const Reference& entry) { absent_.erase(entry); }
    /// The entry is there: those who waited for it.
    Waiters appeared(const Reference& entry);
    /// The entry was looked at and is not there: those who waited for it in vain.
    Waiters absent(const Reference& entry, Kiln::TimePoint now);
    /// One whose waiters' patience is over; it counts as absent now.
    std::optional<Reference> overdue(Kiln::TimePoint now) const;
    /// When to ask overdue() next.
    std::optional<Kiln::TimePoint> nextDue() const;

    /// So many waits have begun: missing entries for which somebody began to wait.
    std::uint64_t begun() const { return begun_; }
    /// Whether one of the first so many lasts.
    bool lasts(std::uint64_t begun) const;

    std::size_t size() const { return size_; }
    /// Of these, who wait for an entry of this lane.
    std::size_t size(Lane missing) const { return sizes_[index(missing)]; }
    /// One of those that wait.
    struct Held {
        Reference waiter;
        Reference missing;
        Kiln::TimePoint since;  ///< the first of those who wait for it has waited
    };
    /// So many at most, in the order of what is missing.
    std::vector<Held> held(std::size_t most) const;

private:
    struct Missing {
        Kiln::TimePoint since;
        std::uint64_t number = 0;  // of the wait, from 1
        Waiters waiters;
    };
    static constexpr std::size_t kRemembered = 1U << 18U;

    Waiters take(const Reference& entry);

    const Kiln::Duration patience_;
    // Trees: a hash map of that size takes longer than a slice whenever it is made anew.
    absl::btree_map<Reference, Missing> missing_;
    absl::btree_map<std::uint64_t, Reference> waits_;  // what is missing, by number: as they began
    std::uint64_t begun_ = 0;
    absl::btree_map<Reference, Kiln::TimePoint> absent_;  // since when
    std::deque<Reference> absentInOrder_;                 // some have appeared since
    std::size_t size_ = 0;
    std::array<std::size_t, kLanes> sizes_{};  // by the lane of what is missing
};

}  // namespace Gale

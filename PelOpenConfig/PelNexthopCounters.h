#pragma once

#include <absl/container/btree_map.h>

#include <deque>
#include <optional>
#include <utility>

#include "PelOpenConfig/PelOcFecExportData.h"

namespace Pel::Oc {

/// Counters that are known of next hops but not shown now: what is shown stands in the AFT and
/// nowhere else.
///
/// They wait for their next hop to be exported, or for its deletion. One that is not even in the
/// flattened set may never be either, so of those only the last ones are kept.
class NexthopCounters {
public:
    static constexpr std::size_t kStrays = 4096;

    /// Null when none wait. Valid until something changes.
    const NhCounters* find(Stash::OcNextHopIndex nhId) const {
        const auto it = waiting_.find(nhId);
        return it == waiting_.end() ? nullptr : &it->second;
    }
    /// `inSet` tells of a next hop whether the flattened set has it now.
    template <class InSet>
    void is(const NhCounters& counters, InSet inSet) {
        const bool added = waiting_.insert_or_assign(counters.key, counters).second;
        if (!added || inSet(counters.key)) { return; }
        strays_.push_back(counters.key);
        if (strays_.size() <= kStrays) { return; }
        const Stash::OcNextHopIndex oldest = strays_.front();
        strays_.pop_front();
        if (!inSet(oldest)) { waiting_.erase(oldest); }
    }
    /// Harmless when none wait.
    void del(Stash::OcNextHopIndex nhId) { waiting_.erase(nhId); }
    std::optional<Stash::OcNextHopIndex> nextKey(
        const std::optional<Stash::OcNextHopIndex>& after) const {
        const auto it = after ? waiting_.upper_bound(*after) : waiting_.begin();
        return it == waiting_.end() ? std::nullopt : std::optional{it->first};
    }
    std::size_t size() const { return waiting_.size(); }

    using Waiting = absl::btree_map<Stash::OcNextHopIndex, NhCounters>;
    /// Answers what was there: a million entries are not freed in one go.
    Waiting delAll() {
        strays_.clear();
        return std::exchange(waiting_, {});
    }

private:
    Waiting waiting_;
    std::deque<Stash::OcNextHopIndex> strays_;
};

}  // namespace Pel::Oc

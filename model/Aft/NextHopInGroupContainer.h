#pragma once

#include <absl/container/inlined_vector.h>

#include <algorithm>
#include <cstdint>

#include "model/Aft/NextHopIndex.h"
#include "platform/Vel/Fields.h"

namespace Pel::OcApi {

struct NextHopInGroup {
    NextHopIndex index;
    std::uint32_t weight = 0;
    static constexpr auto fields() {
        return Vel::fields(Vel::field("index", &NextHopInGroup::index),
                           Vel::field("weight", &NextHopInGroup::weight));
    }
    friend bool operator==(const NextHopInGroup&, const NextHopInGroup&) = default;
};

/// The members of a group by next-hop index, in index order.
class NextHopInGroupContainer {
public:
    std::size_t size() const { return members_.size(); }
    bool empty() const { return members_.empty(); }
    /// Null when absent.
    const NextHopInGroup* nextHopInGroup(NextHopIndex index) const {
        const auto it = std::lower_bound(members_.begin(), members_.end(), index, before);
        return it != members_.end() && it->index == index ? &*it : nullptr;
    }
    /// Adds a member, in place of any with its index.
    void nextHopInGroupIs(const NextHopInGroup& member) {
        const auto it = std::lower_bound(members_.begin(), members_.end(), member.index, before);
        if (it != members_.end() && it->index == member.index) {
            *it = member;
        } else {
            members_.insert(it, member);
        }
    }
    auto begin() const { return members_.begin(); }
    auto end() const { return members_.end(); }
    friend bool operator==(const NextHopInGroupContainer&,
                           const NextHopInGroupContainer&) = default;

private:
    static bool before(const NextHopInGroup& member, NextHopIndex index) {
        return member.index < index;
    }
    absl::InlinedVector<NextHopInGroup, 2> members_;
};

}  // namespace Pel::OcApi

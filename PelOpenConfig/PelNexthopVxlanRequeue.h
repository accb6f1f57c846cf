#pragma once

#include <absl/container/btree_set.h>
#include <absl/functional/function_ref.h>

#include <deque>
#include <optional>

#include "PelOpenConfig/PelNexthopVxlanIndexes.h"

namespace Pel::Oc {

/// A change of a VXLAN tunnel interface: of its address, or of the VNI of one VLAN.
struct VxlanChange {
    Nexo::IntfId vti;
    std::optional<Nexo::ExtendedVlanId> vlan;  ///< absent: the address
    friend auto operator<=>(const VxlanChange&, const VxlanChange&) = default;
};

/// Changes whose next hops are still to be mapped again. An interface may carry 100,000 next hops,
/// more than fit into a slice, so they are taken out of the indexes a few at a time.
///
/// Changes have their turn in the order in which they came. One that comes again before its turn is
/// one; one that comes again during its turn has another turn, behind the others, so that an
/// interface that never rests holds up neither the others nor its own last next hops. A next hop
/// that leaves an index before its turn is being mapped for that reason anyway.
class NexthopVxlanRequeue {
public:
    explicit NexthopVxlanRequeue(const NexthopVxlanIndexes& indexes) : indexes_{indexes} {}

    void changeIs(const VxlanChange& change) {
        if (waiting_.insert(change).second) { order_.push_back(change); }
    }
    /// Looks at a few next hops, and hands on those that a change concerns. Answers whether there
    /// are more to look at.
    bool step(absl::FunctionRef<void(const VxlanChange&, Stash::OcNextHopIndex)> put);

private:
    /// The next hops to look at. Of a VLAN's change those of the VLAN or those of the interface,
    /// whichever are fewer: either holds all. Null when there are none.
    const NexthopVxlanIndexes::NextHopIds* candidates(const VxlanChange& change) const;
    bool concerns(const VxlanChange& change, Stash::OcNextHopIndex nhId) const;

    const NexthopVxlanIndexes& indexes_;
    std::deque<VxlanChange> order_;
    absl::btree_set<VxlanChange> waiting_;  // what is in order_
    std::optional<VxlanChange> current_;
    std::optional<Stash::OcNextHopIndex> after_;  // of the current one, up to here is done
};

}  // namespace Pel::Oc

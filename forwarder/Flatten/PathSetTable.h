#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/inlined_vector.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "forwarder/Flatten/AdjacencyTable.h"
#include "model/Fec/FecId.h"

namespace Pel::Forwarder {

/// A member of a route's own path list.
struct PathMember {
    AdjacencyId adjacency = kNoAdjacency;
    std::uint32_t weight = 1;
    bool dead = false;  ///< state, not identity: the kernel revives a path in place
};

/// Path lists of routes that name no nexthop object, each distinct list once. The number of a list
/// is made from its content (gateway, interface, encapsulation and weight of each member, sorted),
/// so that the same list has the same FEC id again after a restart; two lists that fall on one
/// number are told apart by counting up.
class PathSetTable {
public:
    explicit PathSetTable(AdjacencyTable& adjacencies) : adjacencies_{adjacencies} {}

    struct Acquired {
        FecId id;
        bool changed;  ///< a member died or came back to life
    };
    /// Finds or makes the set and counts one user. An empty list is a set of its own: packets are
    /// dropped.
    Acquired acquire(std::span<const Path> paths);
    void release(FecId id);
    void acquire(FecId id);

    /// Null when there is no such set; in content order otherwise. Valid until the next change.
    const absl::InlinedVector<PathMember, 2>* find(FecId id) const;
    std::size_t size() const { return sets_.size(); }

private:
    struct PathSet {
        absl::InlinedVector<PathMember, 2> members;
        std::uint32_t users = 0;
    };
    void sortedMembers(std::span<const Path> paths);
    FecId contentNumber() const;
    bool sameMembers(const PathSet& set) const;
    bool updateDead(PathSet& set) const;

    AdjacencyTable& adjacencies_;
    absl::btree_map<FecId, PathSet> sets_;
    absl::InlinedVector<PathMember, 2> scratch_;  // the list being looked up
};

}  // namespace Pel::Forwarder

#pragma once

#include <absl/container/btree_set.h>

#include <compare>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "forwarder/Flatten/FibMessages.h"

namespace Pel::Forwarder {

/// Number of an interned adjacency; stable while somebody uses it.
using AdjacencyId = std::uint32_t;
inline constexpr AdjacencyId kNoAdjacency = 0xFFFF'FFFFU;

/// Identity of a member of a FEC. Ordered by interface, then gateway, so that all adjacencies of a
/// link or of a neighbour stand together.
struct AdjacencyKey {
    std::uint32_t ifindex = 0;
    Nexo::IpGenAddr gateway;
    EncapPtr encap;  // compared by content

    std::strong_ordering operator<=>(const AdjacencyKey& other) const;
    bool operator==(const AdjacencyKey& other) const { return std::is_eq(*this <=> other); }
};

/// What links and neighbours make of an adjacency.
struct AdjacencyState {
    std::optional<Nexo::EthAddr> mac;
    bool up = false;       ///< the interface is set up
    bool running = false;  ///< the interface has carrier
    bool operator==(const AdjacencyState&) const = default;
};

struct Adjacency {
    AdjacencyKey key;
    AdjacencyState state;
    std::uint32_t users = 0;
    std::uint32_t version = 0;  ///< grows with each change of what is published; 0: never looked at
};

/// Each (interface, gateway, encapsulation) once, counted: a million next hops usually share far
/// fewer adjacencies, and comparing members is comparing numbers.
class AdjacencyTable {
public:
    AdjacencyTable();
    AdjacencyTable(const AdjacencyTable&) = delete;
    AdjacencyTable& operator=(const AdjacencyTable&) = delete;
    ~AdjacencyTable() = default;

    /// Finds or makes it, and counts one user.
    AdjacencyId acquire(const AdjacencyKey& key);
    void acquire(AdjacencyId id) { ++adjacencies_[id].users; }
    /// Forgets one user; the last one's leaving frees the number.
    void release(AdjacencyId id);

    const Adjacency& operator[](AdjacencyId id) const { return adjacencies_[id]; }
    Adjacency& operator[](AdjacencyId id) { return adjacencies_[id]; }
    /// The first at or behind `key` (behind only, when `after`); kNoAdjacency at the end.
    AdjacencyId next(const AdjacencyKey& key, bool after) const;
    std::size_t size() const { return order_.size(); }

private:
    struct Less {
        using is_transparent = void;
        const std::deque<Adjacency>* all;
        bool operator()(AdjacencyId a, AdjacencyId b) const {
            return (*all)[a].key < (*all)[b].key;
        }
        bool operator()(AdjacencyId a, const AdjacencyKey& b) const { return (*all)[a].key < b; }
        bool operator()(const AdjacencyKey& a, AdjacencyId b) const { return a < (*all)[b].key; }
    };

    std::deque<Adjacency> adjacencies_;  // by id; users == 0: free. A deque: growing copies nothing
    std::vector<AdjacencyId> free_;
    absl::btree_set<AdjacencyId, Less> order_;
};

}  // namespace Pel::Forwarder

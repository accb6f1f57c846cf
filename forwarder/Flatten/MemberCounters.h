#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/flat_hash_map.h>
#include <absl/container/inlined_vector.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "forwarder/Flatten/Fib.h"
#include "forwarder/Flatten/Flatten.h"

namespace Pel::Forwarder {

/// What a next hop has forwarded. 0 octets with packets: they are not known.
struct Traffic {
    std::uint64_t packets = 0;
    std::uint64_t octets = 0;
    bool operator==(const Traffic&) const = default;
};

/// A next hop's traffic, and how much of it the kernel's own counts do not have (modulo 2^64). Kept in the store, so that
/// the next run goes on where this one ended.
struct CountedTraffic {
    Traffic traffic;
    Traffic offset;
};

/// Makes the traffic of next hops of what the kernel counts of the members of its groups.
///
/// The kernel begins at 0 again when a group is replaced, with each member that comes, and with each VNI that comes into
/// a filter. So a next hop's traffic is what is counted now plus an offset, which takes over what was counted before each
/// such beginning. What an earlier run published is the floor: less than that means a beginning that nobody saw, and
/// counting goes on from there.
///
/// Members with one adjacency are one next hop and are added up. Groups count packets only. Octets are those of the VNI, for a
/// next hop that is alone in naming a VNI that a VXLAN device with a filter counts; as long as it is. Where the VNI's
/// packets are the next hop's, the octets are, too; otherwise they count from when the next hop was first seen.
///
/// Belongs to one thread, that of Flatten.
class MemberCounters {
public:
    /// Borrows both.
    MemberCounters(const Fib& fib, const Flatten& flatten) : fib_{fib}, flatten_{flatten} {}
    MemberCounters(const MemberCounters&) = delete;
    MemberCounters& operator=(const MemberCounters&) = delete;

    // A poll: VNIs first, then groups. Next hops that are not published are passed over.

    void beginPoll();
    void apply(std::uint32_t ifindex, const VniCount& count);
    void apply(const Nexthop& group);
    /// After a complete poll: forgets what it did not mention; each entry costs one of `budget`. False when done.
    bool forget(std::size_t& budget);

    // What is to be published.

    /// The next of the next hops whose traffic has changed; none. It is not named again until it changes again, or, when
    /// it could not be published, is polled again.
    std::optional<OcNextHopNumber> takeChanged();
    void notPublished(OcNextHopNumber nextHop);
    /// Whether traffic() needs to be told first what is published of it.
    bool wantsPublished(OcNextHopNumber nextHop) const;
    void publishedIs(OcNextHopNumber nextHop, const CountedTraffic& published);
    /// Its traffic; none when it has been forgotten.
    std::optional<CountedTraffic> traffic(OcNextHopNumber nextHop) const;

    std::size_t size() const { return states_.size(); }

private:
    using Members = absl::InlinedVector<std::pair<std::uint32_t, std::uint64_t>, 1>;  // by id
    struct State {
        Members members;  // nexthop id, packets as counted
        VniCount vni;     // as counted; number 0: octets are not known
        Traffic offset;
        bool packetsFounded = false;  // the offset takes account of what is published
        bool octetsFounded = false;
        bool changed = false;    // stands in changed_
        bool published = false;  // or has nothing to publish
        std::uint32_t poll = 0;  // the last one that mentioned it

        std::uint64_t packets() const;
        std::uint64_t octets() const { return vni.vni == 0 ? 0 : vni.octets + offset.octets; }
    };
    void count(OcNextHopNumber nextHop, Members members, AdjacencyId adjacency);
    static bool take(State& state, Members members);
    static bool take(State& state, const VniCount& vni);
    VniCount vniOf(AdjacencyId adjacency) const;

    const Fib& fib_;
    const Flatten& flatten_;
    absl::btree_map<OcNextHopNumber, State> states_;
    absl::flat_hash_map<std::pair<std::uint32_t, std::uint32_t>, VniCount> vnis_;  // of this poll
    std::deque<OcNextHopNumber> changed_;
    std::uint32_t poll_ = 0;
    OcNextHopNumber bookmark_ = 0;  // of forget(): the first that it has not looked at

    struct Counted {
        OcNextHopNumber nextHop;
        AdjacencyId adjacency;
        std::uint32_t id;
        std::uint64_t packets;
    };
    std::vector<Counted> scratch_;  // of apply()
};

}  // namespace Pel::Forwarder

#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>
#include <absl/container/inlined_vector.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "forwarder/Flatten/AdjacencyTable.h"
#include "forwarder/Flatten/FanOut.h"
#include "forwarder/Flatten/FibMessages.h"
#include "forwarder/Flatten/PathSetTable.h"
#include "forwarder/Flatten/RouteStore.h"
#include "forwarder/Flatten/VniFilters.h"

namespace Pel::Forwarder {

/// What is dumped, marked and swept as a unit.
enum class FibPart : std::uint8_t {
    Links,
    BridgePorts,
    VniFilters,
    Neighbours,
    Nexthops,
    RoutesV4,
    RoutesV6
};
inline constexpr std::size_t kFibParts = 7;

/// How a route message relates to what is already there.
enum class RouteMode : std::uint8_t {
    Replace,  ///< the message is complete and wins
    Add,      ///< a further route of the same prefix may exist; the new one comes first
    Append,   ///< the same; the new one comes last
    Dump,     ///< part of a dump: the first message of a prefix and metric wins
};

/// A member of a FEC as its source has it.
struct FecMember {
    AdjacencyId adjacency = kNoAdjacency;
    std::uint32_t weight = 1;
    bool dead = false;  ///< the source says so
    bool needsCarrier =
        false;  ///< a nexthop object leaves the kernel with the carrier; a plain path does not
};

struct LinkChange {
    std::uint32_t ifindex = 0;
    bool renamed = false;  ///< what is published of a next hop on it may read differently
};

/// What changed since somebody last looked; the reader takes and clears.
struct FibChanges {
    bool everything = true;  ///< first download: nothing is listed below, all is new
    std::vector<LinkChange> links;
    std::vector<std::pair<std::uint32_t, Nexo::IpGenAddr>> neighbours;
    std::vector<FecId> fecs;
    std::vector<RouteRef> routes;
    std::vector<std::uint32_t> vrfTables;
    std::vector<std::uint32_t> vtis;  ///< VXLAN devices, by ifindex
};

/// One model of links, neighbours, nexthop objects and routes, whatever order a source tells them
/// in: references are kept as numbers and resolved when read. A full dump is mark and sweep: what
/// it does not mention, `sweep` removes.
///
/// Which routes are kept: types unicast, blackhole, unreachable and prohibit, chosen by destination
/// only, of every table but the local one (255) and the unspecified one; of these the main table
/// and tables with a VRF device are exported. Local, broadcast and multicast entries say what the
/// router itself receives, not where it forwards. fe80::/10 is left out: it exists once per
/// interface, and an AFT is keyed by prefix alone.
///
/// Belongs to one thread.
class Fib {
public:
    static constexpr std::uint32_t kMainTable = 254;

    Fib() = default;
    Fib(const Fib&) = delete;
    Fib& operator=(const Fib&) = delete;
    ~Fib() = default;

    /// True when the link's administrative state or carrier changed, or it is new.
    bool apply(const Link& link);
    void linkDel(std::uint32_t ifindex);
    void apply(const BridgePort& port);
    void bridgePortDel(std::uint32_t ifindex);
    void apply(const VniFilter& filter);
    void vniFilterDel(const VniFilter& filter);
    void apply(const Neighbour& neighbour);
    void neighbourDel(std::uint32_t ifindex, const Nexo::IpGenAddr& address);
    void apply(const Nexthop& nexthop);
    void nexthopDel(std::uint32_t id);
    void apply(const Route& route, RouteMode mode);
    void routeDel(const Route& route);

    /// From here on, what is not applied again is stale.
    void beginDump(FibPart part);
    /// Removes what is stale since beginDump; each entry costs one of `budget`. False when done.
    bool sweep(FibPart part, std::size_t& budget);
    /// Whether a route went while another of the same prefix and metric may have been hidden behind
    /// it, so that only a new dump tells what is left. Clears.
    bool takeRoutesUncertain() { return std::exchange(routesUncertain_, false); }

    FibChanges& changes() { return changes_; }
    FanOut<std::uint32_t>& groupsOf() { return groupsOf_; }
    AdjacencyTable& adjacencies() { return adjacencies_; }
    const AdjacencyTable& adjacencies() const { return adjacencies_; }
    RouteStore& routes() { return routes_; }

    const Link* link(std::uint32_t ifindex) const;
    /// The VXLAN devices, by ifindex.
    std::vector<std::uint32_t> vtis() const;
    /// The only port of a bridge, when that is a VXLAN device: whatever the bridge sends goes into
    /// the tunnel. Else null.
    const Link* onlyPortVxlan(std::uint32_t bridge) const;
    /// What the bridge says of the port, if that bridge tells VLANs apart; else null.
    const BridgePort* vlansOf(const Link& port) const;
    /// The VNIs that a device with a filter serves; null: none.
    const VniRanges* vniFilter(std::uint32_t ifindex) const { return vniFilters_.find(ifindex); }
    /// Name of the VRF of a table, or "" when it has none; the main table's is "default".
    std::string vrfName(std::uint32_t table) const;
    /// Tables that have a name, the main table first.
    std::vector<std::uint32_t> vrfTables() const;
    /// What the adjacency's link and neighbour say now.
    AdjacencyState adjacencyState(const AdjacencyKey& key) const;
    /// Whether the source has the FEC; then its members, in the source's order.
    bool members(FecId id, std::vector<FecMember>& out) const;
    /// Where a nexthop object leads; kNoAdjacency of a group, a blackhole, or one that is not there.
    AdjacencyId adjacencyOf(std::uint32_t nexthopId) const;
    std::size_t nexthopCount() const { return nexthops_.size(); }
    std::size_t neighbourCount() const { return neighbours_.size(); }

private:
    struct StoredLink {
        Link link;
        std::uint8_t generation = 0;
    };
    struct StoredPort {
        BridgePort port;
        std::uint8_t generation = 0;
    };
    struct StoredNeighbour {
        Nexo::EthAddr mac{};
        std::uint8_t generation = 0;
    };
    struct StoredNexthop {
        AdjacencyId adjacency = kNoAdjacency;
        std::uint8_t generation = 0;
        bool blackhole = false;
        bool fdb = false;
        bool isGroup = false;
        std::vector<std::pair<std::uint32_t, std::uint32_t>> group;  // id, weight
    };
    using NeighbourKey = std::pair<std::uint32_t, Nexo::IpGenAddr>;

    std::uint8_t generation(FibPart part) const {
        return generations_[static_cast<std::size_t>(part)];
    }
    void vrfChanged(const Link& link);
    void linkChanged(const Link& old, const Link& now);
    void vtiChanged(std::uint32_t ifindex);
    void bridgeChanged(std::uint32_t ifindex);
    void portChanged(std::uint32_t ifindex);
    void portsChanged(std::uint32_t bridge);
    void contentChanged(std::uint32_t ifindex);
    void fecChanged(FecId id);
    void nexthopChanged(std::uint32_t id);
    void forget(StoredNexthop& nexthop, std::uint32_t id);
    void routeChanged(const RouteRef& ref);
    FecId acquireTarget(const Route& route);
    void releaseTarget(FecId target);
    std::optional<Route> merged(const Route& route, const RouteVariant& old, RouteMode mode);
    std::vector<Path> paths(const absl::InlinedVector<PathMember, 2>& members) const;
    void variantIs(const RouteRef& ref, const Route& route, const RouteVariant& old);
    bool sweepLinks();
    bool sweepBridgePorts();
    bool sweepVniFilters();
    bool sweepNeighbours(std::size_t& budget);
    bool sweepNexthops(std::size_t& budget);
    bool sweepRoutes(Nexo::AddressFamily family, std::uint8_t current, std::size_t& budget);

    AdjacencyTable adjacencies_;
    PathSetTable pathSets_{adjacencies_};
    absl::btree_map<std::uint32_t, StoredLink> links_;
    absl::btree_set<std::pair<std::uint32_t, std::uint32_t>> ports_;  // master, ifindex
    absl::btree_map<std::uint32_t, StoredPort> bridgePorts_;
    VniFilters vniFilters_;
    absl::btree_map<NeighbourKey, StoredNeighbour> neighbours_;  // usable ones only
    absl::btree_map<std::uint32_t, StoredNexthop> nexthops_;
    FanOut<std::uint32_t> groupsOf_;  // nexthop id -> groups that name it
    RouteStore routes_;
    FibChanges changes_;
    std::uint8_t generations_[kFibParts] = {};
    bool hiddenDuplicates_[2] = {};  // V4, V6: since the last dump began
    bool routesUncertain_ = false;
    NeighbourKey neighbourBookmark_{};
    std::uint32_t nexthopBookmark_ = 0;
    RouteRef routeBookmarks_[2];  // V4, V6
    std::vector<RouteRef> staleRoutes_;
};

}  // namespace Pel::Forwarder

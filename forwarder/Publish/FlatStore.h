#pragma once

#include <absl/container/btree_map.h>
#include <absl/functional/function_ref.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "forwarder/Flatten/Flatten.h"
#include "forwarder/Publish/StoredCounters.h"
#include "model/Counters/NexthopGroupEntryToCounterKeyTable.h"
#include "model/Fec/FlattenFecEntry.h"
#include "model/Fec/FlattenNextHopEntry.h"
#include "model/Route/RouteStatus.h"
#include "model/Tunnel/DecapConfig.h"
#include "model/Tunnel/UdpDestinationPortConfig.h"
#include "model/Vrf/VrfIdMap.h"
#include "model/Vxlan/VtiStatusDir.h"
#include "platform/Hubdb/Publisher.h"
#include "platform/Mesa/Publisher.h"
#include "platform/Stash/Publisher.h"
#include "platform/Store/Writer.h"

namespace Pel::Forwarder {

/// Where the forwarder's records stand in the store: the flattened FEC set, the route tables of each VRF, the VRF id map,
/// the counter key of each next hop, tunnel interfaces, readiness. A record that the store holds already is no write. All calls go into the writer's open transaction; one call writes at most
/// kRecordsPerCall records, but for vrfDel, whose tables are empty by then.
///
/// Nothing is remembered here that a failed transaction would have to take back: names and slots are looked up in the
/// store.
///
/// A next hop's counter index is its own number: from 1 upward, never given twice within a store, below 2^48. A counter goes with its
/// next hop, and when that is in no group any more; a tunnel's goes with its FEC.
class FlatStore {
public:
    static constexpr std::size_t kRecordsPerCall = 16;

    FlatStore(Store::Writer& writer, unsigned cellId);

    /// Whether every table could be registered.
    bool valid() const;
    /// Claims the store for a kind of source ("kernel", "scenario"), for ever: each gives next hops
    /// numbers of its own, and one that comes to mean another next hop is what no reader expects.
    /// Empty, or whose it is.
    std::string sourceIs(std::string_view source);
    /// Hands what is there to `flatten`; records that do not verify are left out. Reads everything in one go: for the
    /// start, before anything is served.
    void readBack(Flatten& flatten);

    /// No next hop of this number or above was ever written; kept in the store, so that no number comes twice.
    void firstFreeIndexIs(OcNextHopNumber index);

    void vrfIs(const FlatVrf& vrf);
    void nextHopIs(const FlatNextHop& nextHop);
    void fecIs(const FlatFec& fec);
    void routeIs(const FlatRoute& route);
    void routeDel(const FlatRouteKey& key);
    void fecDel(FecId id);
    void nextHopDel(OcNextHopNumber index);
    /// The name that the VRF had; "" when there was none.
    std::string vrfDel(std::uint32_t table);

    /// Says that each VRF's routes are complete, one record a VRF, and then that the whole FEC set is.
    void readyIs();

    // The same with the records themselves, which may hold what no kernel says. Handles are filled in.

    /// A next hop of no group has no counter.
    void nextHopIs(FlattenNextHopEntry entry, std::string_view content);
    void fecIs(FecId id, FlattenFecEntry entry, std::string_view content);
    void routeIs(const std::string& vrf, const Nexo::IpPrefix& prefix, const Mesa::FibRoute& route);
    void routeDel(const std::string& vrf, const Nexo::IpPrefix& prefix);
    /// The VRF's row of the id map only.
    void vrfIdDel(Vrf::VrfId id);
    /// All else of a VRF; its tables are empty by then.
    void vrfTablesDel(const std::string& vrf);
    /// The VXLAN tunnel interfaces; none of them, no record.
    void vtisIs(const Vxlan::VtiStatusDirRecord& vtis);
    // Tunnel configuration of one source: "" is the device's own configuration, any other name a
    // dynamic source. None of it, no record.
    void udpPortsIs(const std::string& source,
                    const L3::Tunnel::UdpDestinationPortConfigRecord& ports);
    void decapGroupsIs(const std::string& source, const Tunnel::Decap::ConfigRecord& groups);
    void fecReadyIs(bool ready);
    /// Nullopt: the VRF waits for nobody, there is no such record.
    void fibReadyIs(const std::string& vrf, std::optional<bool> ready);
    /// Whether the changes of a route table have paused. Without effect when that is said already,
    /// or there is no such table.
    void quiescedIs(const std::string& vrf, Nexo::AddressFamily family, bool quiesced);

    /// Whoever sets a counter sees to it that what is counted is there.
    StoredCounters& counters() { return counters_; }

    // What the store holds, to compare it with; also what does not verify. A visitor must not write.

    OcNextHopNumber firstFreeIndex();
    /// The FEC that the route names; none without the route.
    std::optional<FecId> fecOf(const FlatRouteKey& key);
    /// The FEC that the next hop is of; none without the next hop.
    std::optional<FecId> fecOf(OcNextHopNumber index);
    bool hasFec(FecId id);
    void forEachNextHop(absl::FunctionRef<void(Stash::OcNextHopIndex)> visit);
    void forEachFec(absl::FunctionRef<void(FecId)> visit);
    void forEachVrfId(absl::FunctionRef<void(Vrf::VrfId)> visit);
    /// Names of the VRFs that have route tables.
    std::vector<std::string> routeVrfs();
    void forEachRoute(const std::string& vrf, absl::FunctionRef<void(const Nexo::IpPrefix&)> visit);
    // Sources of tunnel configuration that have a record.
    std::vector<std::string> udpPortSources();
    std::vector<std::string> decapGroupSources();

private:
    using RouteTable = Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute>;
    RouteTable& routeTable(const std::string& vrf, Nexo::AddressFamily family);
    RouteTable& routeTable(const std::string& vrf, const Nexo::IpPrefix& prefix);
    bool hasRouteTable(const FlatRouteKey& key);
    bool hasRouteTable(const std::string& vrf, Nexo::AddressFamily family);
    std::optional<FlattenNextHopEntry> nextHop(Stash::OcNextHopIndex index);
    void counterKeyDel(const FlattenNextHopEntry& entry);
    bool holds(const Stash::Handle& handle, std::string_view content);
    std::vector<std::string> sourcesAt(std::string_view own, std::string_view dynamic);
    absl::btree_map<std::uint32_t, std::string> vrfNames();
    void readBackNextHops(Flatten& flatten);
    void readBackFecs(Flatten& flatten);
    void readBackRoutes(Flatten& flatten, const std::string& vrf, Nexo::AddressFamily family);
    std::string content(const Stash::Handle& handle);
    std::string readyPath(const std::string& vrf) const;

    Store::Writer& writer_;
    unsigned cellId_;
    Stash::ContentPublisher contents_;
    Stash::CollectionPublisher<FecId, FlattenFecEntry> fecs_;
    Stash::CollectionPublisher<Stash::OcNextHopIndex, FlattenNextHopEntry> nextHops_;
    Mesa::TablePublisher<NexthopGroupEntryCounterKey, Routing::NexthopGroup::CounterKeyEntry>
        counterKeys_;
    StoredCounters counters_;
    Mesa::TablePublisher<Vrf::VrfId, Vrf::VrfIdMap::Entry> vrfMap_;
    Hubdb::Publisher state_;
    Store::TableId contentTable_;  // for reading back
    Store::TableId controls_;      // what is said of tables, by path
    Store::TableId identity_;      // what only a forwarder reads
    absl::btree_map<std::pair<std::string, Nexo::AddressFamily>, RouteTable> routes_;
};

}  // namespace Pel::Forwarder

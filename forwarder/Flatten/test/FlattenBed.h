#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "forwarder/Flatten/Flatten.h"

namespace Pel::Forwarder {

/// A Fib and its Flatten, spoken to in a few words, and the published state that the diffs add up
/// to. Each diff is checked while it is applied: whatever it refers to has to be there.
class FlattenBed {
public:
    Fib fib;
    Flatten flatten{fib};

    std::map<std::uint32_t, std::string> vrfs;
    Vxlan::VtiStatusDirRecord vtis;
    std::map<OcNextHopNumber, FlatNextHop> nextHops;
    std::map<FecId, FlatFec> fecs;
    std::map<FlatRouteKey, FlatRoute> routes;

    void link(std::uint32_t ifindex, const std::string& name, bool up = true, bool running = true);
    void vlan(std::uint32_t ifindex,
              const std::string& name,
              std::uint32_t parent,
              std::uint16_t id);
    void vrf(std::uint32_t ifindex, const std::string& name, std::uint32_t table);
    /// A VXLAN device without a local address, of one VNI or, with 0, external.
    static Link vxlan(std::uint32_t ifindex, const std::string& name, std::uint32_t vni);
    static Link bridge(std::uint32_t ifindex, const std::string& name, bool vlanFiltering = false);
    void neighbour(std::uint32_t ifindex, const std::string& address, std::uint8_t lastByteOfMac);
    void neighbourFailed(std::uint32_t ifindex, const std::string& address);
    void nexthop(std::uint32_t id, const std::string& gateway, std::uint32_t ifindex);
    void blackholeNexthop(std::uint32_t id);
    void group(std::uint32_t id,
               const std::vector<std::pair<std::uint32_t, std::uint32_t>>& members);

    static Path path(const std::string& gateway, std::uint32_t ifindex, std::uint32_t weight = 1);
    /// The same behind an IP tunnel header; on an external VXLAN device `key` is the VNI.
    static Path tunnel(const std::string& gateway,
                       std::uint32_t ifindex,
                       std::uint64_t key,
                       const std::string& remote,
                       const std::string& local = "");
    static Route route(const std::string& prefix, const std::vector<Path>& paths);
    static Route nhidRoute(const std::string& prefix, std::uint32_t nexthopId);
    void add(const Route& route, RouteMode mode = RouteMode::Replace) { fib.apply(route, mode); }
    void del(const Route& route) { fib.routeDel(route); }

    /// Collects until nothing is left, in batches of `budget`, and applies. What changed, all
    /// batches together.
    FlatDiff settle(std::size_t budget = 1000);
    /// Gives another Flatten what is published here.
    void restoreInto(Flatten& other) const;

    FecId fecOf(const std::string& prefix, const std::string& vrf = "default") const;
    /// "gateway@interface w2" of each member, in slot order; "none" when the route is not
    /// published.
    std::vector<std::string> members(const std::string& prefix) const;
    /// "vti/vlan" of the next hop with that address behind the prefix; "" when it has no tunnel.
    std::string vxlan(const std::string& prefix, const std::string& address) const;
    /// "local, local of IPv6: vlan=vni ..." of a tunnel interface; "none".
    std::string vti(const std::string& name) const;
    /// The number of the next hop with that gateway behind the prefix; 0 none.
    OcNextHopNumber index(const std::string& prefix, const std::string& gateway) const;

private:
    void apply(const FlatDiff& diff);
};

}  // namespace Pel::Forwarder

#include "forwarder/Flatten/test/FlattenBed.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>

namespace Pel::Forwarder {

void FlattenBed::link(std::uint32_t ifindex, const std::string& name, bool up, bool running) {
    Link link;
    link.ifindex = ifindex;
    link.name = name;
    link.up = up;
    link.running = running;
    fib.apply(link);
}

void FlattenBed::vlan(std::uint32_t ifindex,
                      const std::string& name,
                      std::uint32_t parent,
                      std::uint16_t id) {
    Link link;
    link.ifindex = ifindex;
    link.name = name;
    link.kind = LinkKind::Vlan;
    link.parent = parent;
    link.vlanId = id;
    link.up = link.running = true;
    fib.apply(link);
}

void FlattenBed::vrf(std::uint32_t ifindex, const std::string& name, std::uint32_t table) {
    Link link;
    link.ifindex = ifindex;
    link.name = name;
    link.kind = LinkKind::Vrf;
    link.vrfTable = table;
    link.up = link.running = true;
    fib.apply(link);
}

Link FlattenBed::vxlan(std::uint32_t ifindex, const std::string& name, std::uint32_t vni) {
    Link link;
    link.ifindex = ifindex;
    link.name = name;
    link.kind = LinkKind::Vxlan;
    link.vni = vni;
    link.vxlanExternal = vni == 0;
    link.up = link.running = true;
    return link;
}

Link FlattenBed::bridge(std::uint32_t ifindex, const std::string& name, bool vlanFiltering) {
    Link link;
    link.ifindex = ifindex;
    link.name = name;
    link.kind = LinkKind::Bridge;
    link.vlanFiltering = vlanFiltering;
    link.up = link.running = true;
    return link;
}

void FlattenBed::neighbour(std::uint32_t ifindex, const std::string& address, std::uint8_t last) {
    fib.apply(
        Neighbour{ifindex, *Nexo::IpGenAddr::parse(address), Nexo::EthAddr{{2, 0, 0, 0, 0, last}}});
}

void FlattenBed::neighbourFailed(std::uint32_t ifindex, const std::string& address) {
    fib.apply(Neighbour{ifindex, *Nexo::IpGenAddr::parse(address), std::nullopt});
}

void FlattenBed::nexthop(std::uint32_t id, const std::string& gateway, std::uint32_t ifindex) {
    Nexthop nexthop;
    nexthop.id = id;
    nexthop.path = path(gateway, ifindex);
    fib.apply(nexthop);
}

void FlattenBed::blackholeNexthop(std::uint32_t id) {
    Nexthop nexthop;
    nexthop.id = id;
    nexthop.blackhole = true;
    fib.apply(nexthop);
}

void FlattenBed::group(std::uint32_t id,
                       const std::vector<std::pair<std::uint32_t, std::uint32_t>>& members) {
    Nexthop nexthop;
    nexthop.id = id;
    nexthop.isGroup = true;
    for (const auto& [member, weight] : members) { nexthop.group.push_back({member, weight, 0}); }
    fib.apply(nexthop);
}

Path FlattenBed::path(const std::string& gateway, std::uint32_t ifindex, std::uint32_t weight) {
    Path path;
    path.gateway = Nexo::IpGenAddr::parse(gateway).value_or(Nexo::IpGenAddr{});
    path.ifindex = ifindex;
    path.weight = weight;
    return path;
}

Path FlattenBed::tunnel(const std::string& gateway,
                        std::uint32_t ifindex,
                        std::uint64_t key,
                        const std::string& remote,
                        const std::string& local) {
    auto encap = std::make_shared<Encap>();
    encap->kind = EncapKind::Ip;
    encap->tunnelId = key;
    encap->remote = Nexo::IpGenAddr::parse(remote).value_or(Nexo::IpGenAddr{});
    encap->local = Nexo::IpGenAddr::parse(local).value_or(Nexo::IpGenAddr{});
    encap->ttl = 64;
    Path result = path(gateway, ifindex);
    result.encap = encap;
    return result;
}

Route FlattenBed::route(const std::string& prefix, const std::vector<Path>& paths) {
    Route route;
    route.table = Fib::kMainTable;
    route.prefix = *Nexo::IpPrefix::parse(prefix);
    route.type = RouteType::Unicast;
    route.protocol = RTPROT_STATIC;
    route.paths.assign(paths.begin(), paths.end());
    return route;
}

Route FlattenBed::nhidRoute(const std::string& prefix, std::uint32_t nexthopId) {
    Route result = route(prefix, {});
    result.nexthopId = nexthopId;
    return result;
}

FlatDiff FlattenBed::settle(std::size_t budget) {
    FlatDiff total;
    for (bool more = true; more;) {
        FlatDiff diff;
        more = flatten.collect(diff, budget);
        apply(diff);
        total.vrfs.insert(total.vrfs.end(), diff.vrfs.begin(), diff.vrfs.end());
        total.vtis.insert(total.vtis.end(), diff.vtis.begin(), diff.vtis.end());
        total.nextHops.insert(total.nextHops.end(), diff.nextHops.begin(), diff.nextHops.end());
        total.fecs.insert(total.fecs.end(), diff.fecs.begin(), diff.fecs.end());
        total.routes.insert(total.routes.end(), diff.routes.begin(), diff.routes.end());
        total.routeDeletes.insert(
            total.routeDeletes.end(), diff.routeDeletes.begin(), diff.routeDeletes.end());
        total.fecDeletes.insert(
            total.fecDeletes.end(), diff.fecDeletes.begin(), diff.fecDeletes.end());
        total.nextHopDeletes.insert(
            total.nextHopDeletes.end(), diff.nextHopDeletes.begin(), diff.nextHopDeletes.end());
        total.vrfDeletes.insert(
            total.vrfDeletes.end(), diff.vrfDeletes.begin(), diff.vrfDeletes.end());
    }
    return total;
}

void FlattenBed::apply(const FlatDiff& diff) {
    for (const FlatVrf& vrf : diff.vrfs) { vrfs[vrf.table] = vrf.name; }
    for (const Vxlan::VtiStatusDirRecord& record : diff.vtis) {
        EXPECT_EQ(diff.vtis.size(), 1U);
        EXPECT_FALSE(record.vti == vtis.vti) << "nothing changed";
        vtis = record;
    }
    for (const FlatNextHop& nextHop : diff.nextHops) {
        EXPECT_NE(nextHop.index, 0U);
        if (nextHop.encap != nullptr && nextHop.encap->vxlan) {
            EXPECT_TRUE(vtis.vti.contains(nextHop.encap->vxlan->vti))
                << "next hop before its tunnel interface";
        }
        nextHops[nextHop.index] = nextHop;
    }
    for (const FlatFec& fec : diff.fecs) {
        for (const FlatMember& member : fec.members) {
            EXPECT_TRUE(nextHops.contains(member.index))
                << "FEC " << fec.id.value() << " before its next hop";
        }
        fecs[fec.id] = fec;
    }
    for (const FlatRoute& route : diff.routes) {
        EXPECT_TRUE(fecs.contains(route.fecId))
            << route.key.prefix.stringValue() << " before its FEC";
        routes[route.key] = route;
    }
    for (const FlatRouteKey& key : diff.routeDeletes) { EXPECT_EQ(routes.erase(key), 1U); }
    for (const FecId id : diff.fecDeletes) {
        EXPECT_EQ(fecs.erase(id), 1U);
        for (const auto& [key, route] : routes) {
            EXPECT_NE(route.fecId, id) << "FEC deleted under " << key.prefix.stringValue();
        }
    }
    for (const OcNextHopNumber index : diff.nextHopDeletes) {
        EXPECT_EQ(nextHops.erase(index), 1U);
        for (const auto& [id, fec] : fecs) {
            for (const FlatMember& member : fec.members) {
                EXPECT_NE(member.index, index) << "next hop deleted under FEC " << id.value();
            }
        }
    }
    for (const std::uint32_t table : diff.vrfDeletes) { EXPECT_EQ(vrfs.erase(table), 1U); }
}

void FlattenBed::restoreInto(Flatten& other) const {
    for (const auto& [table, name] : vrfs) { other.restore(FlatVrf{table, name}); }
    other.restore(vtis);
    for (const auto& [index, nextHop] : nextHops) { other.restore(nextHop); }
    for (const auto& [id, fec] : fecs) { other.restore(fec); }
    for (const auto& [key, route] : routes) { other.restore(route); }
}

FecId FlattenBed::fecOf(const std::string& prefix, const std::string& vrf) const {
    const auto route = routes.find({vrf, *Nexo::IpPrefix::parse(prefix)});
    return route == routes.end() ? FecId{} : route->second.fecId;
}

std::vector<std::string> FlattenBed::members(const std::string& prefix) const {
    const auto fec = fecs.find(fecOf(prefix));
    if (fec == fecs.end()) { return {"none"}; }
    std::vector<std::string> result;
    for (const FlatMember& member : fec->second.members) {
        const FlatNextHop& nextHop = nextHops.at(member.index);
        result.push_back(nextHop.address.stringValue() + "@" + nextHop.interfaceName + " w" +
                         std::to_string(member.weight));
    }
    return result;
}

std::string FlattenBed::vxlan(const std::string& prefix, const std::string& address) const {
    const auto nextHop = nextHops.find(index(prefix, address));
    if (nextHop == nextHops.end()) { return "none"; }
    const FlatEncapPtr& encap = nextHop->second.encap;
    if (encap == nullptr || !encap->vxlan) { return ""; }
    return encap->vxlan->vti.stringValue() + "/" + std::to_string(encap->vxlan->vlan);
}

std::string FlattenBed::vti(const std::string& name) const {
    const auto found = vtis.vti.find(Nexo::IntfId{name});
    if (found == vtis.vti.end()) { return "none"; }
    std::string result =
        found->second.vtepAddr.stringValue() + "," + found->second.vtepAddrV6.stringValue() + ":";
    for (const auto& [vlan, vni] : found->second.vlanVniMap) {
        result += " " + std::to_string(vlan) + "=" + std::to_string(vni);
    }
    return result;
}

OcNextHopNumber FlattenBed::index(const std::string& prefix, const std::string& gateway) const {
    for (const auto& [index, nextHop] : nextHops) {
        if (nextHop.fecId == fecOf(prefix) && nextHop.address.stringValue() == gateway) {
            return index;
        }
    }
    return 0;
}

}  // namespace Pel::Forwarder

#include "forwarder/Flatten/Fib.h"

#include <algorithm>
#include <iterator>

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("ForwarderFib");

namespace Pel::Forwarder {

using Nexo::AddressFamily;

namespace {

constexpr std::uint32_t kLocalTable = 255;

FibPart routesPart(AddressFamily family) {
    return family == AddressFamily::ipv6 ? FibPart::RoutesV6 : FibPart::RoutesV4;
}

/// fe80::/10 and longer.
bool isLinkLocal(const Nexo::IpPrefix& prefix) {
    const auto bytes = prefix.address().bytes();
    return bytes.size() == 16 && prefix.length() >= 10 && bytes[0] == 0xFE &&
           (bytes[1] & 0xC0U) == 0x80U;
}

bool kept(const Route& route) {
    const bool known = route.prefix.address().family() != AddressFamily::none;
    return known && !route.cloned && !route.sourceOrTos && route.type != RouteType::Other &&
           route.table != 0 && route.table != kLocalTable && !isLinkLocal(route.prefix);
}

RouteRef refOf(const Route& route) {
    return {{route.prefix.address().family(), route.table}, route.prefix};
}

bool allHaveGateways(const Route& route) {
    return std::all_of(route.paths.begin(), route.paths.end(), [](const Path& path) {
        return !isNone(path.gateway);
    });
}

bool samePath(const Path& a, const Path& b) {
    return AdjacencyKey{a.ifindex, a.gateway, a.encap} ==
           AdjacencyKey{b.ifindex, b.gateway, b.encap};
}

bool names(const Route& route, const Path& path) {
    return std::any_of(route.paths.begin(), route.paths.end(), [&path](const Path& other) {
        return samePath(path, other);
    });
}

}  // namespace

// Links

bool Fib::apply(const Link& link) {
    const auto [at, isNew] = links_.try_emplace(link.ifindex);
    StoredLink& stored = at->second;
    stored.generation = generation(FibPart::Links);
    if (!isNew && stored.link == link) { return false; }
    const bool stateChanged =
        isNew || stored.link.up != link.up || stored.link.running != link.running;
    const Link old = std::exchange(stored.link, link);
    if (old.master != link.master) {
        ports_.erase({old.master, link.ifindex});
        if (link.master != 0) { ports_.insert({link.master, link.ifindex}); }
    }
    linkChanged(old, link);
    TRACE7("link {} {} up {} running {}", link.ifindex, link.name, link.up, link.running);
    return stateChanged;
}

void Fib::linkDel(std::uint32_t ifindex) {
    const auto at = links_.find(ifindex);
    if (at == links_.end()) { return; }
    const Link old = at->second.link;
    links_.erase(at);
    ports_.erase({old.master, ifindex});
    bridgePorts_.erase(ifindex);
    vniFilters_.forget(ifindex);  // the kernel says no word of them
    linkChanged(old, Link{});
}

/// What a link says has changed; `old` or `now` may be no link.
void Fib::linkChanged(const Link& old, const Link& now) {
    vrfChanged(old);
    vrfChanged(now);
    const std::uint32_t ifindex = std::max(old.ifindex, now.ifindex);
    if (old.kind == LinkKind::Vxlan || now.kind == LinkKind::Vxlan) { vtiChanged(ifindex); }
    if (changes_.everything) { return; }
    const bool renamed = old.name != now.name || old.parent != now.parent ||
                         old.vlanId != now.vlanId || old.kind != now.kind || old.vni != now.vni ||
                         old.vxlanExternal != now.vxlanExternal;
    changes_.links.push_back({ifindex, renamed});
    if (renamed && now.ifindex != 0) {
        for (const auto& [child, other] : links_) {  // a VLAN interface shows its parent's name
            if (other.link.parent == ifindex) { contentChanged(child); }
        }
    }
    if (old.vlanFiltering != now.vlanFiltering) { portsChanged(ifindex); }
    if (renamed || old.master != now.master) {
        bridgeChanged(old.master);
        bridgeChanged(now.master);
        portChanged(ifindex);
    }
}

void Fib::contentChanged(std::uint32_t ifindex) {
    if (ifindex != 0 && !changes_.everything) { changes_.links.push_back({ifindex, true}); }
}

void Fib::vtiChanged(std::uint32_t ifindex) {
    if (!changes_.everything) { changes_.vtis.push_back(ifindex); }
}

std::vector<std::uint32_t> Fib::vtis() const {
    std::vector<std::uint32_t> result;
    for (const auto& [ifindex, stored] : links_) {
        if (stored.link.kind == LinkKind::Vxlan) { result.push_back(ifindex); }
    }
    return result;
}

// Bridge ports and VNI filters

/// A bridge shows its only port's tunnel.
void Fib::bridgeChanged(std::uint32_t ifindex) {
    const Link* const master = link(ifindex);
    if (master != nullptr && master->kind == LinkKind::Bridge) { contentChanged(ifindex); }
}

/// The VLANs of a port read differently, if it is one that shows them.
void Fib::portChanged(std::uint32_t ifindex) {
    const Link* const port = link(ifindex);
    if (port == nullptr || port->kind != LinkKind::Vxlan) { return; }
    vtiChanged(ifindex);
    contentChanged(ifindex);
    bridgeChanged(port->master);
}

void Fib::portsChanged(std::uint32_t bridge) {
    for (auto at = ports_.lower_bound({bridge, 0}); at != ports_.end() && at->first == bridge;
         ++at) {
        portChanged(at->second);
    }
}

void Fib::apply(const BridgePort& port) {
    const auto [at, isNew] = bridgePorts_.try_emplace(port.ifindex);
    at->second.generation = generation(FibPart::BridgePorts);
    if (!isNew && at->second.port == port) { return; }
    at->second.port = port;
    portChanged(port.ifindex);
}

void Fib::bridgePortDel(std::uint32_t ifindex) {
    if (bridgePorts_.erase(ifindex) > 0) { portChanged(ifindex); }
}

const BridgePort* Fib::vlansOf(const Link& port) const {
    const Link* const bridge = link(port.master);
    const auto at = bridgePorts_.find(port.ifindex);
    const bool told = bridge != nullptr && bridge->vlanFiltering && at != bridgePorts_.end();
    return told ? &at->second.port : nullptr;
}

const Link* Fib::onlyPortVxlan(std::uint32_t bridge) const {
    const auto first = ports_.lower_bound({bridge, 0});
    if (first == ports_.end() || first->first != bridge) { return nullptr; }
    const auto second = std::next(first);
    if (second != ports_.end() && second->first == bridge) { return nullptr; }
    const Link* const port = link(first->second);
    return port != nullptr && port->kind == LinkKind::Vxlan ? port : nullptr;
}

void Fib::apply(const VniFilter& filter) {
    if (vniFilters_.add(filter)) { vtiChanged(filter.ifindex); }
}

void Fib::vniFilterDel(const VniFilter& filter) {
    if (vniFilters_.remove(filter)) { vtiChanged(filter.ifindex); }
}

// VRFs

void Fib::vrfChanged(const Link& link) {
    if (link.kind == LinkKind::Vrf && !changes_.everything) {
        changes_.vrfTables.push_back(link.vrfTable);
    }
}

const Link* Fib::link(std::uint32_t ifindex) const {
    const auto at = links_.find(ifindex);
    return at == links_.end() ? nullptr : &at->second.link;
}

std::string Fib::vrfName(std::uint32_t table) const {
    if (table == kMainTable) { return "default"; }
    for (const auto& [ifindex, stored] : links_) {
        const bool names = stored.link.kind == LinkKind::Vrf && stored.link.vrfTable == table;
        if (names && stored.link.name != "default") { return stored.link.name; }
    }
    return {};
}

std::vector<std::uint32_t> Fib::vrfTables() const {
    std::vector<std::uint32_t> result{kMainTable};
    for (const auto& [ifindex, stored] : links_) {
        if (stored.link.kind == LinkKind::Vrf) { result.push_back(stored.link.vrfTable); }
    }
    return result;
}

// Neighbours

void Fib::apply(const Neighbour& neighbour) {
    if (!neighbour.mac) {
        neighbourDel(neighbour.ifindex, neighbour.address);
        return;
    }
    const auto [at, isNew] = neighbours_.try_emplace({neighbour.ifindex, neighbour.address});
    at->second.generation = generation(FibPart::Neighbours);
    if (!isNew && at->second.mac == *neighbour.mac) { return; }
    at->second.mac = *neighbour.mac;
    if (!changes_.everything) { changes_.neighbours.push_back(at->first); }
}

void Fib::neighbourDel(std::uint32_t ifindex, const Nexo::IpGenAddr& address) {
    if (neighbours_.erase({ifindex, address}) == 0) { return; }
    if (!changes_.everything) { changes_.neighbours.emplace_back(ifindex, address); }
}

AdjacencyState Fib::adjacencyState(const AdjacencyKey& key) const {
    AdjacencyState state;
    if (key.ifindex == 0) {  // no interface, so nothing can take it down
        state.up = state.running = true;
        return state;
    }
    if (const Link* const at = link(key.ifindex)) {
        state.up = at->up;
        state.running = at->running;
    }
    const auto neighbour = neighbours_.find({key.ifindex, key.gateway});
    if (!isNone(key.gateway) && neighbour != neighbours_.end()) {
        state.mac = neighbour->second.mac;
    }
    return state;
}

// Nexthop objects

void Fib::fecChanged(FecId id) {
    if (!changes_.everything) { changes_.fecs.push_back(id); }
}

void Fib::nexthopChanged(std::uint32_t id) {
    if (changes_.everything) { return; }
    changes_.fecs.push_back(makeFecId(FecKind::kernel, id));
    groupsOf_.changed(id);
}

void Fib::forget(StoredNexthop& nexthop, std::uint32_t id) {
    if (nexthop.adjacency != kNoAdjacency) { adjacencies_.release(nexthop.adjacency); }
    for (const auto& member : nexthop.group) {
        groupsOf_.remove(member.first, makeFecId(FecKind::kernel, id));
    }
}

void Fib::apply(const Nexthop& nexthop) {
    if (nexthop.id == 0) { return; }
    StoredNexthop now;
    now.generation = generation(FibPart::Nexthops);
    now.blackhole = nexthop.blackhole;
    now.fdb = nexthop.fdb;
    now.isGroup = nexthop.isGroup;
    for (const NexthopGroupEntry& entry : nexthop.group) {
        now.group.emplace_back(entry.id, entry.weight);
    }
    if (!now.isGroup && !now.blackhole && !now.fdb) {
        const Path& path = nexthop.path;
        now.adjacency = adjacencies_.acquire(AdjacencyKey{path.ifindex, path.gateway, path.encap});
    }
    StoredNexthop& stored = nexthops_[nexthop.id];
    const bool same = stored.adjacency == now.adjacency && stored.blackhole == now.blackhole &&
                      stored.fdb == now.fdb && stored.isGroup == now.isGroup &&
                      stored.group == now.group &&
                      (now.isGroup || now.blackhole || now.fdb || stored.adjacency != kNoAdjacency);
    // The edges of the old group go before those of the new one come: they share members.
    forget(stored, nexthop.id);
    for (const auto& member : now.group) {
        groupsOf_.add(member.first, makeFecId(FecKind::kernel, nexthop.id));
    }
    stored = std::move(now);
    if (!same) { nexthopChanged(nexthop.id); }
}

void Fib::nexthopDel(std::uint32_t id) {
    const auto at = nexthops_.find(id);
    if (at == nexthops_.end()) { return; }
    forget(at->second, id);
    nexthops_.erase(at);
    nexthopChanged(id);
}

bool Fib::members(FecId id, std::vector<FecMember>& out) const {
    out.clear();
    if (fecKind(id) == FecKind::memberSet) {
        const auto* const set = pathSets_.find(id);
        if (set == nullptr) { return false; }
        for (const PathMember& m : *set) { out.push_back({m.adjacency, m.weight, m.dead, false}); }
        return true;
    }
    if (fecKind(id) != FecKind::kernel) { return false; }
    const auto at = nexthops_.find(static_cast<std::uint32_t>(fecNumber(id)));
    if (at == nexthops_.end() || at->second.fdb) { return false; }
    if (!at->second.isGroup) {
        if (!at->second.blackhole) { out.push_back({at->second.adjacency, 1, false, true}); }
        return true;
    }
    for (const auto& [memberId, weight] : at->second.group) {
        const auto member = nexthops_.find(memberId);
        if (member == nexthops_.end() || member->second.adjacency == kNoAdjacency) { continue; }
        out.push_back({member->second.adjacency, weight, false, true});
    }
    return true;
}

AdjacencyId Fib::adjacencyOf(std::uint32_t nexthopId) const {
    const auto at = nexthops_.find(nexthopId);
    return at == nexthops_.end() ? kNoAdjacency : at->second.adjacency;
}

// Routes

void Fib::routeChanged(const RouteRef& ref) {
    if (changes_.everything) { return; }
    RouteEntry& entry = routes_.entry(ref);
    if (entry.dirty) { return; }
    entry.dirty = true;
    changes_.routes.push_back(ref);
}

FecId Fib::acquireTarget(const Route& route) {
    if (route.nexthopId != 0) { return makeFecId(FecKind::kernel, route.nexthopId); }
    const bool drops = route.type != RouteType::Unicast;
    const auto acquired = drops ? pathSets_.acquire(std::span<const Path>{})
                                : pathSets_.acquire(std::span<const Path>{route.paths});
    if (acquired.changed) { fecChanged(acquired.id); }
    return acquired.id;
}

void Fib::releaseTarget(FecId target) {
    if (fecKind(target) == FecKind::memberSet) { pathSets_.release(target); }
}

/// The route to store when one of the same metric is already there, or none when the stored one
/// stays.
std::optional<Route> Fib::merged(const Route& route, const RouteVariant& old, RouteMode mode) {
    const FibPart part = routesPart(route.prefix.address().family());
    const bool firstOfDump = mode == RouteMode::Dump && old.generation != generation(part);
    if (mode == RouteMode::Replace || firstOfDump) { return route; }
    const FecId target = acquireTarget(route);
    releaseTarget(target);
    if (target == old.target) { return route; }
    const auto* const members = pathSets_.find(old.target);
    const bool v6 = part == FibPart::RoutesV6;
    if (v6 && route.nexthopId == 0 && members != nullptr && !members->empty()) {
        Route all = route;
        for (const Path& path : paths(*members)) {
            if (!names(route, path)) { all.paths.push_back(path); }
        }
        if (allHaveGateways(all)) { return all; }  // IPv6 grows a multipath route path by path
    }
    // Two routes under one key. The first in the kernel's table forwards, the other one is hidden
    // behind it.
    hiddenDuplicates_[v6 ? 1 : 0] = true;
    if (mode == RouteMode::Add && !v6) { return route; }
    return std::nullopt;
}

std::vector<Path> Fib::paths(const absl::InlinedVector<PathMember, 2>& members) const {
    std::vector<Path> result;
    for (const PathMember& member : members) {
        const AdjacencyKey& key = adjacencies_[member.adjacency].key;
        result.push_back({key.gateway, key.ifindex, member.weight, member.dead, key.encap});
    }
    return result;
}

void Fib::variantIs(const RouteRef& ref, const Route& route, const RouteVariant& old) {
    const FecId target = acquireTarget(route);
    const RouteVariant variant{
        target, route.metric, route.protocol, generation(routesPart(ref.table.family))};
    const bool changed = routes_.variantIs(ref, variant);
    if (old.target) { releaseTarget(old.target); }
    if (changed) { routeChanged(ref); }
}

void Fib::apply(const Route& route, RouteMode mode) {
    const bool leadsNowhere =
        route.type == RouteType::Unicast && route.nexthopId == 0 && route.paths.empty();
    if (!kept(route) || route.type == RouteType::Unspecified || leadsNowhere) { return; }
    const RouteRef ref = refOf(route);
    const RouteVariant old = routes_.variant(ref, route.metric);
    if (!old.target) {
        variantIs(ref, route, old);
        return;
    }
    if (const auto result = merged(route, old, mode)) { variantIs(ref, *result, old); }
}

void Fib::routeDel(const Route& route) {
    if (!kept(route)) { return; }
    const RouteRef ref = refOf(route);
    const RouteVariant old = routes_.variant(ref, route.metric);
    if (!old.target) { return; }
    const bool v6 = ref.table.family == AddressFamily::ipv6;
    routesUncertain_ = routesUncertain_ || hiddenDuplicates_[v6 ? 1 : 0];
    const auto* const members = pathSets_.find(old.target);
    const bool partial = v6 && route.nexthopId == 0 && !route.paths.empty() && members != nullptr &&
                         members->size() > route.paths.size();
    if (partial) {  // IPv6 shrinks a multipath route path by path
        Route rest = route;
        rest.type = RouteType::Unicast;
        rest.protocol = old.protocol;
        rest.paths.clear();
        for (const Path& path : paths(*members)) {
            if (!names(route, path)) { rest.paths.push_back(path); }
        }
        variantIs(ref, rest, old);
        return;
    }
    const bool changed = routes_.variantDel(ref, route.metric);
    releaseTarget(old.target);
    if (changed) { routeChanged(ref); }
}

// Mark and sweep

void Fib::beginDump(FibPart part) {
    ++generations_[static_cast<std::size_t>(part)];
    switch (part) {
        case FibPart::Links:
        case FibPart::BridgePorts:
            break;
        case FibPart::VniFilters:
            vniFilters_.beginDump();
            break;
        case FibPart::Neighbours:
            neighbourBookmark_ = {};
            break;
        case FibPart::Nexthops:
            nexthopBookmark_ = 0;
            break;
        case FibPart::RoutesV4:
            routeBookmarks_[0] = {{AddressFamily::ipv4, 0}, {}};
            hiddenDuplicates_[0] = false;
            break;
        case FibPart::RoutesV6:
            routeBookmarks_[1] = {{AddressFamily::ipv6, 0}, {}};
            hiddenDuplicates_[1] = false;
            break;
    }
}

bool Fib::sweep(FibPart part, std::size_t& budget) {
    switch (part) {
        case FibPart::Links:
            return sweepLinks();
        case FibPart::BridgePorts:
            return sweepBridgePorts();
        case FibPart::VniFilters:
            return sweepVniFilters();
        case FibPart::Neighbours:
            return sweepNeighbours(budget);
        case FibPart::Nexthops:
            return sweepNexthops(budget);
        case FibPart::RoutesV4:
            return sweepRoutes(AddressFamily::ipv4, generation(part), budget);
        case FibPart::RoutesV6:
            return sweepRoutes(AddressFamily::ipv6, generation(part), budget);
    }
    return false;
}

bool Fib::sweepLinks() {
    std::vector<std::uint32_t> stale;
    for (const auto& [ifindex, stored] : links_) {
        if (stored.generation != generation(FibPart::Links)) { stale.push_back(ifindex); }
    }
    for (const std::uint32_t ifindex : stale) { linkDel(ifindex); }
    return false;
}

bool Fib::sweepBridgePorts() {
    std::vector<std::uint32_t> stale;
    for (const auto& [ifindex, stored] : bridgePorts_) {
        if (stored.generation != generation(FibPart::BridgePorts)) { stale.push_back(ifindex); }
    }
    for (const std::uint32_t ifindex : stale) { bridgePortDel(ifindex); }
    return false;
}

bool Fib::sweepVniFilters() {
    for (const std::uint32_t ifindex : vniFilters_.sweep()) { vtiChanged(ifindex); }
    return false;
}

bool Fib::sweepNeighbours(std::size_t& budget) {
    for (; budget > 0; --budget) {
        const auto at = neighbours_.upper_bound(neighbourBookmark_);
        if (at == neighbours_.end()) { return false; }
        neighbourBookmark_ = at->first;
        if (at->second.generation != generation(FibPart::Neighbours)) {
            neighbourDel(neighbourBookmark_.first, neighbourBookmark_.second);
        }
    }
    return true;
}

bool Fib::sweepNexthops(std::size_t& budget) {
    for (; budget > 0; --budget) {
        const auto at = nexthops_.upper_bound(nexthopBookmark_);
        if (at == nexthops_.end()) { return false; }
        nexthopBookmark_ = at->first;
        if (at->second.generation != generation(FibPart::Nexthops)) {
            nexthopDel(nexthopBookmark_);
        }
    }
    return true;
}

bool Fib::sweepRoutes(AddressFamily family, std::uint8_t current, std::size_t& budget) {
    RouteRef& bookmark = routeBookmarks_[family == AddressFamily::ipv6 ? 1 : 0];
    staleRoutes_.clear();
    const bool more =
        routes_.walk(bookmark, true, budget, [&](const RouteRef& ref, const RouteEntry& entry) {
            const bool old = entry.target && entry.generation != current;
            if (old || entry.shadowed) { staleRoutes_.push_back(ref); }
        });
    for (const RouteRef& ref : staleRoutes_) {
        for (const RouteVariant& variant : routes_.variants(ref)) {
            if (variant.generation == current) { continue; }
            const bool changed = routes_.variantDel(ref, variant.metric);
            releaseTarget(variant.target);
            if (changed) { routeChanged(ref); }
        }
    }
    return more;
}

}  // namespace Pel::Forwarder

#include "forwarder/Flatten/Flatten.h"

#include <algorithm>

#include "forwarder/Flatten/NextHopContent.h"
#include "platform/Blink/Trace.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("ForwarderFlatten");

namespace Pel::Forwarder {

using Nexo::AddressFamily;

namespace {

constexpr std::uint32_t kMaxSlot = 0xFFFF;  // of restored records; more than any source can name

void spend(std::size_t& budget, std::size_t cost) {
    budget -= std::min(budget, cost);
}

}  // namespace

Flatten::Flatten(Fib& fib) : fib_{fib}, adjacencies_{fib.adjacencies()} {}

// What an earlier run left

void Flatten::restore(const FlatVrf& vrf) {
    vrfs_[vrf.table].published = vrf.name;
}

void Flatten::restore(const FlatNextHop& nextHop) {
    restoredNextHops_[nextHop.index] = nextHop;
    nextIndex_ = std::max(nextIndex_, nextHop.index + 1);
    if (nextHop.encap != nullptr && nextHop.encap->vxlan) { vtis_.restore(*nextHop.encap->vxlan); }
    if (nextHop.index == 0 || nextHop.slot > kMaxSlot) { return; }
    Fec& fec = fecs_[nextHop.fecId];
    if (fec.slots.size() <= nextHop.slot) { fec.slots.resize(nextHop.slot + 1); }
    Slot& slot = fec.slots[nextHop.slot];
    if (slot.index != 0) { return; }
    slot.index = nextHop.index;
    slot.published = true;
}

void Flatten::restore(const FlatFec& fec) {
    restoredFecs_[fec.id] = fec;
    fecs_[fec.id].published = true;
}

void Flatten::restore(const FlatRoute& route) {
    for (const auto& [table, vrf] : vrfs_) {
        if (vrf.published != route.key.vrf || !route.fecId) { continue; }
        RouteEntry& entry =
            fib_.routes().entry({{route.key.prefix.address().family(), table}, route.key.prefix});
        entry.published = route.fecId;
        entry.publishedOrigin = route.origin;
        ++fecs_[route.fecId].routes;
        ++routeCount_;
        return;
    }
    homelessRoutes_.push_back(route.key);
}

void Flatten::firstFreeIndexIs(OcNextHopNumber index) {
    nextIndex_ = std::max(nextIndex_, index);
}

// Worklists

bool Flatten::collect(FlatDiff& diff, std::size_t budget) {
    VEL_ASSERT(diff.empty());
    takeChanges(diff);
    if (!diff.empty()) { return true; }  // leftovers go alone: what replaces them has the same keys
    vtis_.update();
    refreshLinks(budget);
    refreshNeighbours(budget);
    const auto mark = [this](FecId id) { fecChanged(id); };
    fecsOf_.visit(budget, mark);
    fib_.groupsOf().visit(budget, mark);
    buildDirtyFecs(diff, budget);
    for (; !dirtyVrfs_.empty() && budget > 0; --budget) {
        const std::uint32_t table = dirtyVrfs_.front();
        dirtyVrfs_.pop_front();
        processVrf(diff, table);
    }
    processRoutes(diff, budget);
    walkTables(diff, budget);
    // Last of all, so that a route that moves from one FEC to another and back costs no deletion.
    if (drained()) { deleteIdleFecs(diff, budget); }
    if (!settled_ && drained() && idleFecs_.empty()) {
        settled_ = true;
        vtis_.forgetRestored();
    }
    vtis_.update();
    if (vtis_.dirty()) { takeVtis(diff); }
    return !drained() || !idleFecs_.empty();
}

void Flatten::takeVtis(FlatDiff& diff) {
    if (auto vtis = vtis_.take()) { diff.vtis.push_back(std::move(*vtis)); }
}

bool Flatten::drained() const {
    return links_.empty() && neighbours_.empty() && fecsOf_.idle() && fib_.groupsOf().idle() &&
           dirtyFecs_.empty() && dirtyVrfs_.empty() && dirtyRoutes_.empty() && tableWalks_.empty();
}

void Flatten::takeChanges(FlatDiff& diff) {
    FibChanges& changes = fib_.changes();
    if (changes.everything) {
        takeEverything(diff);
        changes.everything = false;
        return;
    }
    links_.insert(links_.end(), changes.links.begin(), changes.links.end());
    neighbours_.insert(neighbours_.end(), changes.neighbours.begin(), changes.neighbours.end());
    for (const FecId id : changes.fecs) { fecChanged(id); }
    for (const std::uint32_t ifindex : changes.vtis) { vtis_.changed(ifindex); }
    dirtyVrfs_.insert(dirtyVrfs_.end(), changes.vrfTables.begin(), changes.vrfTables.end());
    dirtyRoutes_.insert(dirtyRoutes_.end(), changes.routes.begin(), changes.routes.end());
    changes = FibChanges{};
    changes.everything = false;
}

void Flatten::takeEverything(FlatDiff& diff) {
    diff.routeDeletes = std::exchange(homelessRoutes_, {});
    vtis_.allChanged();
    for (const auto& [table, vrf] : vrfs_) { dirtyVrfs_.push_back(table); }
    for (const std::uint32_t table : fib_.vrfTables()) { dirtyVrfs_.push_back(table); }
    for (const TableKey& table : fib_.routes().tables()) {
        if (vrfs_.contains(table.table)) {
            tableWalks_.push_back({{table, {}}, WalkKind::Refresh});
        }
    }  // the others are walked when they get their name
    // A record that found no slot belongs to nothing. Whole FECs that nothing uses go the usual
    // way.
    for (const auto& [index, nextHop] : restoredNextHops_) {
        const auto fec = fecs_.find(nextHop.fecId);
        const bool placed = fec != fecs_.end() && nextHop.slot < fec->second.slots.size() &&
                            fec->second.slots[nextHop.slot].index == index && index != 0;
        if (!placed) { diff.nextHopDeletes.push_back(index); }
    }
    for (const OcNextHopNumber index : diff.nextHopDeletes) { restoredNextHops_.erase(index); }
    for (const auto& [id, fec] : fecs_) {
        if (fec.routes == 0) { idleFecs_.push_back(id); }
    }
}

void Flatten::refreshLinks(std::size_t& budget) {
    while (!links_.empty() && budget > 0) {
        --budget;
        const LinkChange change = links_.front();
        const AdjacencyKey start{change.ifindex, {}, nullptr};
        const AdjacencyId id =
            adjacencies_.next(linkBookmark_ ? *linkBookmark_ : start, linkBookmark_.has_value());
        if (id == kNoAdjacency || adjacencies_[id].key.ifindex != change.ifindex) {
            links_.pop_front();
            linkBookmark_.reset();
            continue;
        }
        linkBookmark_ = adjacencies_[id].key;
        refresh(id, change.renamed);
    }
}

void Flatten::refreshNeighbours(std::size_t& budget) {
    for (; !neighbours_.empty() && budget > 0; --budget) {
        AdjacencyKey key{neighbours_.front().first, neighbours_.front().second, nullptr};
        neighbours_.pop_front();
        AdjacencyId id = adjacencies_.next(key, false);
        while (id != kNoAdjacency && adjacencies_[id].key.ifindex == key.ifindex &&
               adjacencies_[id].key.gateway == key.gateway) {
            refresh(id, false);
            spend(budget, 1);
            key = adjacencies_[id].key;
            id = adjacencies_.next(key, true);
        }
        if (budget == 0) { return; }
    }
}

void Flatten::refresh(AdjacencyId id, bool renamed) {
    Adjacency& adjacency = adjacencies_[id];
    if (adjacency.version == 0) { return; }  // in no FEC of ours
    const AdjacencyState now = fib_.adjacencyState(adjacency.key);
    if (now == adjacency.state && !renamed) { return; }
    if (now.mac != adjacency.state.mac || renamed) { ++adjacency.version; }
    adjacency.state = now;
    fecsOf_.changed(id);
}

void Flatten::fecChanged(FecId id) {
    const auto fec = fecs_.find(id);
    if (fec != fecs_.end() && !fec->second.dirty) {
        fec->second.dirty = true;
        dirtyFecs_.push_back(id);
    }
    auto route = waiting_.lower_bound({id, {}});
    while (route != waiting_.end() && route->first == id) {
        dirtyRoutes_.push_back(route->second);
        route = waiting_.erase(route);
    }
}

void Flatten::buildDirtyFecs(FlatDiff& diff, std::size_t& budget) {
    while (!dirtyFecs_.empty() && budget > 0) {
        --budget;
        const FecId id = dirtyFecs_.front();
        dirtyFecs_.pop_front();
        const auto fec = fecs_.find(id);
        if (fec == fecs_.end()) { continue; }
        fec->second.dirty = false;
        build(diff, id, fec->second, budget);
    }
}

// VRFs

void Flatten::processVrf(FlatDiff& diff, std::uint32_t table) {
    VrfState& vrf = vrfs_[table];
    const std::string wanted = fib_.vrfName(table);
    if (vrf.leaving || wanted == vrf.published) { return; }
    if (!vrf.published.empty()) {  // its routes leave under the name they came with
        vrf.leaving = true;
        tableWalks_.push_back({{{AddressFamily::ipv4, table}, {}}, WalkKind::Withdraw});
        tableWalks_.push_back({{{AddressFamily::ipv6, table}, {}}, WalkKind::WithdrawLast});
        return;
    }
    for (const auto& [other, state] : vrfs_) {
        if (state.published == wanted) { return; }  // asked again when the other table has left
    }
    vrf.published = wanted;
    diff.vrfs.push_back({table, wanted});
    refreshTable(table);
}

void Flatten::refreshTable(std::uint32_t table) {
    tableWalks_.push_back({{{AddressFamily::ipv4, table}, {}}, WalkKind::Refresh});
    tableWalks_.push_back({{{AddressFamily::ipv6, table}, {}}, WalkKind::Refresh});
}

void Flatten::endWithdrawal(FlatDiff& diff, std::uint32_t table) {
    diff.vrfDeletes.push_back(table);
    vrfs_.erase(table);
    refreshTable(table);  // drops what only waited for its withdrawal
    for (const std::uint32_t named : fib_.vrfTables()) { dirtyVrfs_.push_back(named); }
}

void Flatten::walkTables(FlatDiff& diff, std::size_t& budget) {
    while (!tableWalks_.empty() && budget > 0) {
        TableWalk& walk = tableWalks_.front();
        const WalkKind kind = walk.kind;
        const std::uint32_t table = walk.bookmark.table.table;
        const std::string name = vrfs_.contains(table) ? vrfs_[table].published : std::string{};
        const bool more = fib_.routes().walk(
            walk.bookmark, false, budget, [&](const RouteRef& ref, RouteEntry& entry) {
                if (kind != WalkKind::Refresh) {
                    withdraw(diff, ref, entry, name);
                } else if (!entry.dirty) {
                    entry.dirty = true;
                    dirtyRoutes_.push_back(ref);
                }
            });
        if (more) { return; }
        tableWalks_.pop_front();
        if (kind == WalkKind::WithdrawLast) {
            endWithdrawal(diff, table);
            budget =
                0;  // the name may be used again, and not in a batch that also deletes under it
        }
    }
}

// Routes

void Flatten::processRoutes(FlatDiff& diff, std::size_t& budget) {
    while (!dirtyRoutes_.empty() && budget > 0) {
        --budget;
        const RouteRef ref = dirtyRoutes_.front();
        dirtyRoutes_.pop_front();
        processRoute(diff, ref, budget);
    }
}

void Flatten::processRoute(FlatDiff& diff, const RouteRef& ref, std::size_t& budget) {
    RouteEntry* const entry = fib_.routes().find(ref);
    if (entry == nullptr) { return; }
    entry->dirty = false;
    if (entry->waiting) { waitEnd(ref, *entry); }
    const auto vrf = vrfs_.find(ref.table.table);
    const bool named = vrf != vrfs_.end() && !vrf->second.published.empty();
    if (named && vrf->second.leaving) { return; }  // looked at again when its table has left
    if (!named || !entry->target) {
        if (named) { withdraw(diff, ref, *entry, vrf->second.published); }
        if (!entry->target) { fib_.routes().erase(ref); }
        return;
    }
    const FecId target = entry->target;
    Fec& fec = fecs_[target];
    if (!fec.built && !build(diff, target, fec, budget)) {
        if (fec.routes == 0) { idleFecs_.push_back(target); }
        waitFor(target, ref, *entry);
        return;
    }
    const OriginProtocol from = origin(ref, *entry, fec);
    if (entry->published == target && entry->publishedOrigin == from) { return; }
    if (entry->published != target) {
        ++fec.routes;
        routeCount_ += entry->published ? 0 : 1;
        routeLeft(entry->published);
    }
    entry->published = target;
    entry->publishedOrigin = from;
    diff.routes.push_back({{vrf->second.published, ref.prefix}, target, from});
}

void Flatten::waitFor(FecId id, const RouteRef& ref, RouteEntry& entry) {
    entry.waiting = true;
    waiting_.insert({id, ref});
    waitsFor_.insert({ref, id});
}

void Flatten::waitEnd(const RouteRef& ref, RouteEntry& entry) {
    entry.waiting = false;
    const auto wait = waitsFor_.find(ref);
    VEL_ASSERT(wait != waitsFor_.end());
    waiting_.erase({wait->second, ref});
    waitsFor_.erase(wait);
}

void Flatten::withdraw(FlatDiff& diff,
                       const RouteRef& ref,
                       RouteEntry& entry,
                       const std::string& vrf) {
    if (!entry.published) { return; }
    diff.routeDeletes.push_back({vrf, ref.prefix});
    routeLeft(entry.published);
    entry.published = {};
    entry.publishedOrigin = OriginProtocol::unset;
    --routeCount_;
}

void Flatten::routeLeft(FecId id) {
    const auto fec = fecs_.find(id);
    if (fec == fecs_.end()) { return; }
    VEL_ASSERT(fec->second.routes > 0);
    if (--fec->second.routes == 0) { idleFecs_.push_back(id); }
}

OriginProtocol Flatten::origin(const RouteRef& ref, const RouteEntry& entry, const Fec& fec) const {
    bool paths = false;
    bool gateways = false;
    for (const Slot& slot : fec.slots) {
        if (slot.index == 0) { continue; }
        paths = true;
        gateways = gateways || !isNone(adjacencies_[slot.adjacency].key.gateway);
    }
    return originFromKernel(
        entry.protocol, paths && !gateways, ref.table.family == AddressFamily::ipv6);
}

// FECs

bool Flatten::build(FlatDiff& diff, FecId id, Fec& fec, std::size_t& budget) {
    if (!fib_.members(id, members_)) {
        TRACE9("FEC {} is not known to the source", id);
        return false;
    }
    spend(budget, members_.size());
    const bool first = !fec.built;
    mergeTwins();
    match(fec);
    if (first) { recognise(id, fec); }
    place(id, fec);
    bool changed = dropLeftSlots(diff, id, fec);
    changed = emitNextHops(diff, id, fec) || changed;
    fec.built = true;
    if (changed || first) { emitFec(diff, id, fec, first); }
    return true;
}

/// A member that the source names twice is one member of both weights: its identity is its
/// adjacency.
void Flatten::mergeTwins() {
    bySlot_.clear();
    for (std::uint32_t m = 0; m < members_.size(); ++m) {
        bySlot_.emplace_back(members_[m].adjacency, m);
    }
    std::sort(bySlot_.begin(), bySlot_.end());
    bool twins = false;
    for (std::size_t i = 1; i < bySlot_.size(); ++i) {
        if (bySlot_[i].first != bySlot_[i - 1].first) { continue; }
        FecMember& twin = members_[bySlot_[i].second];
        FecMember& first = members_[bySlot_[i - 1].second];
        if (twin.dead || first.dead) {  // only what forwards has a share
            first.weight = first.dead ? twin.weight : first.weight;
            first.dead = first.dead && twin.dead;
        } else {
            first.weight += twin.weight;
        }
        twin.adjacency = kNoAdjacency;
        bySlot_[i].second = bySlot_[i - 1].second;  // a third one joins the first, too
        twins = true;
    }
    if (!twins) { return; }
    members_.erase(std::remove_if(members_.begin(),
                                  members_.end(),
                                  [](const FecMember& m) { return m.adjacency == kNoAdjacency; }),
                   members_.end());
}

/// Finds the slot of each member that has one.
void Flatten::match(Fec& fec) {
    slotOf_.assign(members_.size(), kNoSlot);
    taken_.assign(fec.slots.size(), false);
    bySlot_.clear();
    for (std::uint32_t s = 0; s < fec.slots.size(); ++s) {
        const Slot& slot = fec.slots[s];
        if (slot.adjacency != kNoAdjacency) { bySlot_.emplace_back(slot.adjacency, s); }
    }
    std::sort(bySlot_.begin(), bySlot_.end());
    for (std::size_t m = 0; m < members_.size(); ++m) {
        const AdjacencyId adjacency = members_[m].adjacency;
        const auto at = std::lower_bound(
            bySlot_.begin(), bySlot_.end(), std::pair{adjacency, std::uint32_t{0}});
        if (at == bySlot_.end() || at->first != adjacency) { continue; }
        slotOf_[m] = at->second;
        taken_[at->second] = true;
    }
}

/// Gives restored slots to the members that they were made for.
void Flatten::recognise(FecId id, Fec& fec) {
    for (std::uint32_t s = 0; s < fec.slots.size(); ++s) {
        Slot& slot = fec.slots[s];
        if (slot.index == 0 || slot.adjacency != kNoAdjacency) { continue; }
        const auto stored = restoredNextHops_.find(slot.index);
        if (stored == restoredNextHops_.end()) { continue; }
        for (std::size_t m = 0; m < members_.size(); ++m) {
            const AdjacencyKey& key = adjacencies_[members_[m].adjacency].key;
            if (slotOf_[m] != kNoSlot || publishedAddress(vtis_, key) != stored->second.address) {
                continue;
            }
            const FlatNextHop& then = stored->second;
            if (!sameMember(then, render(id, s, slot.index, members_[m].adjacency))) { continue; }
            if (then.encap != nullptr && then.encap->vxlan) {
                vtis_.recognised(key, *then.encap->vxlan);
            }
            occupy(id, slot, members_[m].adjacency);
            slotOf_[m] = s;
            taken_[s] = true;
            break;
        }
    }
}

/// Gives new members slots that nobody had when the change came.
void Flatten::place(FecId id, Fec& fec) {
    std::uint32_t s = 0;
    for (std::size_t m = 0; m < members_.size(); ++m) {
        if (slotOf_[m] != kNoSlot) { continue; }
        while (s < fec.slots.size() && fec.slots[s].index != 0) { ++s; }
        if (s == fec.slots.size()) {
            fec.slots.emplace_back();
            taken_.push_back(false);
        }
        Slot& slot = fec.slots[s];
        slot.index = nextIndex_++;
        occupy(id, slot, members_[m].adjacency);
        slotOf_[m] = s;
        taken_[s] = true;
    }
}

void Flatten::occupy(FecId id, Slot& slot, AdjacencyId adjacency) {
    slot.adjacency = adjacency;
    adjacencies_.acquire(adjacency);
    fecsOf_.add(adjacency, id);
    vtis_.named(adjacencies_[adjacency].key);
}

bool Flatten::dropLeftSlots(FlatDiff& diff, FecId id, Fec& fec) {
    bool changed = false;
    for (std::uint32_t s = 0; s < fec.slots.size(); ++s) {
        if (taken_[s] || fec.slots[s].index == 0) { continue; }
        changed = changed || fec.slots[s].published;
        dropSlot(diff, id, fec.slots[s]);
    }
    while (!fec.slots.empty() && fec.slots.back().index == 0) { fec.slots.pop_back(); }
    return changed;
}

void Flatten::dropSlot(FlatDiff& diff, FecId id, Slot& slot) {
    if (slot.published) { diff.nextHopDeletes.push_back(slot.index); }
    restoredNextHops_.erase(slot.index);
    const AdjacencyId adjacency = slot.adjacency;
    slot = Slot{};
    if (adjacency == kNoAdjacency) { return; }
    fecsOf_.remove(adjacency, id);
    vtis_.unnamed(adjacencies_[adjacency].key);
    adjacencies_.release(adjacency);
}

/// Says which next hops changed; true when the FEC's own record changed with them.
bool Flatten::emitNextHops(FlatDiff& diff, FecId id, Fec& fec) {
    bool changed = false;
    for (std::size_t m = 0; m < members_.size(); ++m) {
        const FecMember& member = members_[m];
        Slot& slot = fec.slots[slotOf_[m]];
        const bool shown = visible(member);
        changed = changed || shown != slot.published || (shown && slot.weight != member.weight);
        slot.weight = member.weight;
        const std::uint32_t version = adjacencies_[member.adjacency].version;
        if (shown && (!slot.published || slot.version != version)) {
            const FlatNextHop now = render(id, slotOf_[m], slot.index, member.adjacency);
            const auto stored = restoredNextHops_.find(slot.index);
            if (stored == restoredNextHops_.end() || !(stored->second == now)) {
                diff.nextHops.push_back(now);
            }
        }
        if (!shown && slot.published) { diff.nextHopDeletes.push_back(slot.index); }
        restoredNextHops_.erase(slot.index);
        slot.published = shown;
        slot.version = version;
    }
    return changed;
}

void Flatten::emitFec(FlatDiff& diff, FecId id, Fec& fec, bool first) {
    FlatFec record;
    record.id = id;
    record.programmedId = fecKind(id) == FecKind::kernel ? fecNumber(id) : 0;
    for (const Slot& slot : fec.slots) {
        if (slot.published) { record.members.push_back({slot.index, slot.weight}); }
    }
    fec.published = true;
    if (first) {
        const auto stored = restoredFecs_.find(id);
        const bool same = stored != restoredFecs_.end() && stored->second == record;
        if (stored != restoredFecs_.end()) { restoredFecs_.erase(stored); }
        if (same) { return; }
    }
    diff.fecs.push_back(std::move(record));
}

void Flatten::deleteIdleFecs(FlatDiff& diff, std::size_t& budget) {
    while (!idleFecs_.empty() && budget > 0) {
        const FecId id = idleFecs_.front();
        idleFecs_.pop_front();
        const auto at = fecs_.find(id);
        if (at == fecs_.end() || at->second.routes > 0) { continue; }  // used again meanwhile
        Fec& fec = at->second;
        spend(budget, 1 + fec.slots.size());
        if (fec.published) { diff.fecDeletes.push_back(id); }
        for (Slot& slot : fec.slots) {
            if (slot.index != 0) { dropSlot(diff, id, slot); }
        }
        restoredFecs_.erase(id);
        fecs_.erase(at);
    }
}

OcNextHopNumber Flatten::nextHopOf(FecId id, AdjacencyId adjacency) const {
    const auto fec = fecs_.find(id);
    if (fec == fecs_.end() || adjacency == kNoAdjacency) { return 0; }
    for (const Slot& slot : fec->second.slots) {
        if (slot.adjacency == adjacency) { return slot.published ? slot.index : 0; }
    }
    return 0;
}

bool Flatten::visible(const FecMember& member) {
    Adjacency& adjacency = adjacencies_[member.adjacency];
    if (adjacency.version == 0) {
        adjacency.state = fib_.adjacencyState(adjacency.key);
        adjacency.version = 1;
    }
    return !member.dead && adjacency.state.up && (adjacency.state.running || !member.needsCarrier);
}

FlatNextHop Flatten::render(FecId id,
                            std::uint32_t slot,
                            OcNextHopNumber index,
                            AdjacencyId adjacency) const {
    FlatNextHop result;
    result.index = index;
    result.fecId = id;
    result.slot = slot;
    fillContent(fib_, vtis_, adjacencies_[adjacency], result);
    return result;
}

}  // namespace Pel::Forwarder

#include "forwarder/Scenario/ScenarioState.h"

#include <algorithm>
#include <vector>

#include "forwarder/Publish/StoredCounters.h"

namespace Pel::Forwarder {

using Nexo::AddressFamily;

namespace {

template <class Map, class Key>
const typename Map::mapped_type* findIn(const Map& map, const Key& key) {
    const auto it = map.find(key);
    return it == map.end() ? nullptr : &it->second;
}

/// One more, or one less, user of `key`.
template <class Map, class Key>
void count(Map& map, const Key& key, bool more) {
    std::size_t& users = map[key];
    users = more ? users + 1 : users - 1;
    if (users == 0) { map.erase(key); }
}

std::string some(std::size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace

const DescribedVrf* ScenarioState::vrf(const std::string& name) const {
    return findIn(vrfs_, name);
}
const DescribedNextHop* ScenarioState::nextHop(const std::string& name) const {
    return findIn(nextHops_, name);
}
const DescribedFec* ScenarioState::fec(Pel::FecId id) const {
    return findIn(fecs_, id);
}
const DescribedRoute* ScenarioState::route(const RouteKey& key) const {
    return findIn(routes_, key);
}
const DescribedCounter* ScenarioState::counter(const CounterKey& key) const {
    return findIn(counters_, key);
}
const Vxlan::VtiStatus* ScenarioState::vti(const std::string& name) const {
    return findIn(vtis_, name);
}

// Changing

void ScenarioState::put(const DescribedVrf& vrf) {
    const auto id = vrfIds_.try_emplace(vrf.name, vrf.id).first->second;
    const auto& name = vrfNames_.try_emplace(vrf.id, vrf.name).first->second;
    if (id != vrf.id) {
        problems_.add(vrf.place,
                      "the VRF " + inQuotes(vrf.name) + " has the id " +
                          std::to_string(id.value()) + " already");
    } else if (name != vrf.name) {
        problems_.add(vrf.place,
                      "the id " + std::to_string(vrf.id.value()) + " is that of the VRF " +
                          inQuotes(name) + " already");
    }
    if (vrfs_.insert_or_assign(vrf.name, vrf).second) {
        fibReady_[vrf.name] = true;
        touchedFibReady_.insert(vrf.name);
        for (const AddressFamily family : {AddressFamily::ipv4, AddressFamily::ipv6}) {
            quiesced_[{vrf.name, family}] = true;
            touchedQuiesced_.insert({vrf.name, family});
        }
    }
    touchedVrfs_[vrf.name] = vrf.place;
}

/// Names are known for ever, so that an id that was looked up once stays right.
void ScenarioState::resolve(VrfReference& vrf) {
    if (vrf.name.empty()) { return; }
    if (const auto* id = findIn(vrfIds_, vrf.name)) {
        vrf.id = id->value();
        vrf.name.clear();
    } else {
        problems_.add(vrf.place, "there is no VRF " + inQuotes(vrf.name));
    }
}

void ScenarioState::countVrfs(const DescribedNextHop& nextHop, bool more) {
    for (const VrfReference* vrf : {&nextHop.decapVrf, &nextHop.fallbackVrf}) {
        if (vrf->id != 0) { count(nextHopsTo_, vrf->id, more); }
    }
}

void ScenarioState::put(DescribedNextHop nextHop) {
    resolve(nextHop.decapVrf);
    resolve(nextHop.fallbackVrf);
    if (const DescribedNextHop* old = this->nextHop(nextHop.name)) { countVrfs(*old, false); }
    countVrfs(nextHop, true);
    const auto index = indexes_.try_emplace(nextHop.name, nextHop.index).first->second;
    const auto& name = names_.try_emplace(nextHop.index, nextHop.name).first->second;
    if (index != nextHop.index) {
        problems_.add(nextHop.place,
                      "the next hop " + inQuotes(nextHop.name) + " has the index " +
                          std::to_string(index.value()) + " already");
    } else if (name != nextHop.name) {
        problems_.add(nextHop.place,
                      "the index " + std::to_string(nextHop.index.value()) +
                          " is that of the next hop " + inQuotes(name) + " already");
    }
    if (nextHop.index.value() < kFirstDerivedIndex) {
        firstFreeIndex_ = std::max(firstFreeIndex_, nextHop.index.value() + 1);
    }
    touchedNextHops_[nextHop.name] = nextHop.place;
    if (!nextHops_.insert_or_assign(nextHop.name, nextHop).second) { return; }
    // FECs that had it before it was there may have known it by another number.
    if (const auto* slots = findIn(slots_, nextHop.name)) {
        for (const auto& [fec, position] : *slots) { touchedFecs_.emplace(fec, nextHop.place); }
    }
}

void ScenarioState::memberSlotsIs(const DescribedFec& fec, bool present) {
    for (std::uint32_t i = 0; i < fec.members.size(); ++i) {
        const std::string& name = fec.members[i].nextHop;
        const auto before = owner(name);
        auto& slots = slots_[name];
        if (present) {
            slots.emplace(fec.id, i);
        } else {
            slots.erase({fec.id, i});
        }
        if (slots.empty()) { slots_.erase(name); }
        if (owner(name) != before && nextHop(name) != nullptr) {
            touchedNextHops_.emplace(name, nextHop(name)->place);
        }
    }
}

void ScenarioState::put(const DescribedFec& fec) {
    if (const DescribedFec* old = this->fec(fec.id)) { memberSlotsIs(*old, false); }
    memberSlotsIs(fec, true);
    fecs_.insert_or_assign(fec.id, fec);
    touchedFecs_[fec.id] = fec.place;
}

void ScenarioState::put(const RouteKey& key, const DescribedRoute& route) {
    if (const DescribedRoute* old = this->route(key)) {
        count(routesOf_, old->fec, false);
    } else {
        count(routesIn_, key.vrf, true);
    }
    count(routesOf_, route.fec, true);
    routes_.insert_or_assign(key, route);
    touchedRoutes_[key] = route.place;
}

void ScenarioState::put(const CounterKey& key, const DescribedCounter& counter) {
    counters_.insert_or_assign(key, counter);
    touchedCounters_.insert(key);
}

void ScenarioState::put(const std::string& name, const Vxlan::VtiStatus& vti) {
    vtis_.insert_or_assign(name, vti);
    touchedVtis_ = true;
}

void ScenarioState::vrfDel(const std::string& name, Place place) {
    if (vrfs_.erase(name) == 0) { return; }
    fibReady_.erase(name);
    quiesced_.erase({name, AddressFamily::ipv4});
    quiesced_.erase({name, AddressFamily::ipv6});
    touchedVrfs_[name] = place;
}

void ScenarioState::nextHopDel(const std::string& name, Place place) {
    const auto it = nextHops_.find(name);
    if (it == nextHops_.end()) { return; }
    countVrfs(it->second, false);
    nextHops_.erase(it);
    counterDel(CounterKey{name, {}, 0});
    touchedNextHops_[name] = place;
}

void ScenarioState::fecDel(Pel::FecId id, Place place) {
    const auto it = fecs_.find(id);
    if (it == fecs_.end()) { return; }
    const DescribedFec old = std::move(it->second);
    fecs_.erase(it);
    memberSlotsIs(old, false);
    counterDel(CounterKey{{}, id, 0});
    touchedFecs_[id] = place;
}

void ScenarioState::routeDel(const RouteKey& key, Place place) {
    const auto it = routes_.find(key);
    if (it == routes_.end()) { return; }
    count(routesOf_, it->second.fec, false);
    count(routesIn_, key.vrf, false);
    routes_.erase(it);
    touchedRoutes_[key] = place;
}

void ScenarioState::counterDel(const CounterKey& key) {
    if (counters_.erase(key) > 0) { touchedCounters_.insert(key); }
}

void ScenarioState::vtiDel(const std::string& name) {
    touchedVtis_ = vtis_.erase(name) > 0 || touchedVtis_;
}

void ScenarioState::fecReadyIs(bool ready) {
    fecReady_ = ready;
    touchedFecReady_ = true;
}

void ScenarioState::quiescedIs(const RouteTable& table, std::optional<bool> quiesced, Place place) {
    if (vrf(table.first) == nullptr) {
        problems_.add(place, "there is no VRF " + inQuotes(table.first));
        return;
    }
    quiesced_[table] = quiesced;
    touchedQuiesced_.insert(table);
}

void ScenarioState::fibReadyIs(const std::string& vrf, std::optional<bool> ready, Place place) {
    if (this->vrf(vrf) == nullptr) {
        problems_.add(place, "there is no VRF " + inQuotes(vrf));
        return;
    }
    fibReady_[vrf] = ready;
    touchedFibReady_.insert(vrf);
}

// Taking

std::optional<ScenarioState::Slot> ScenarioState::owner(const std::string& nextHop) const {
    const auto* slots = findIn(slots_, nextHop);
    return slots == nullptr ? std::nullopt : std::optional{*slots->begin()};
}

Stash::OcNextHopIndex ScenarioState::indexOf(const std::string& nextHop) const {
    const auto* known = findIn(indexes_, nextHop);
    return known == nullptr ? derivedIndex(nextHop) : *known;
}

NextHopItem ScenarioState::item(const DescribedNextHop& nextHop) const {
    NextHopItem item;
    item.entry.index = nextHop.index;
    if (const auto slot = owner(nextHop.name)) {
        item.entry.nhgId = NexthopGroupId{slot->first.value()};
        item.entry.nhgEntryId = NexthopGroupEntryIndex{slot->second};
    }
    item.content = recordBytes(nextHop);
    return item;
}

FecItem ScenarioState::item(const DescribedFec& fec) const {
    FecItem item;
    item.id = fec.id;
    item.entry.programmedId = fec.programmedId;
    item.entry.topFec = fec.top;
    item.entry.secondFlag = fec.secondFlag;
    std::vector<Stash::OcNextHopIndex> indexes;
    for (const DescribedMember& member : fec.members) {
        indexes.push_back(indexOf(member.nextHop));
    }
    item.content = recordBytes(fec, indexes);
    return item;
}

ScenarioState::Taken ScenarioState::takeChanges() {
    checkVrfs();
    if (!lax_) {
        checkReferences();
        checkVrfReferences();
        checkCounters();
    }
    Taken taken;
    takeReadiness(taken);
    takePuts(taken.data);
    takeCounters(taken.data);
    takeDeletes(taken.data);
    touchedVrfs_.clear();
    touchedNextHops_.clear();
    touchedFecs_.clear();
    touchedRoutes_.clear();
    touchedCounters_.clear();
    touchedVtis_ = false;
    return taken;
}

void ScenarioState::takeReadiness(Taken& to) {
    if (touchedFecReady_ && !fecReady_) { to.data.emplace_back(FecReadyItem{false}); }
    for (const std::string& name : touchedFibReady_) {
        const auto* ready = findIn(fibReady_, name);
        if (ready == nullptr) { continue; }  // goes with its VRF
        (*ready == true ? to.ready : to.data).emplace_back(FibReadyItem{name, *ready});
    }
    if (touchedFecReady_ && fecReady_) { to.ready.emplace_back(FecReadyItem{true}); }
    for (const RouteTable& table : touchedQuiesced_) {
        const auto* quiesced = findIn(quiesced_, table);
        if (quiesced == nullptr || !quiesced->has_value()) { continue; }
        (**quiesced || touchedVrfs_.contains(table.first) ? to.ready : to.data)
            .emplace_back(QuiescedItem{table.first, table.second, **quiesced});
    }
    touchedFecReady_ = false;
    touchedFibReady_.clear();
    touchedQuiesced_.clear();
}

void ScenarioState::takePuts(Changes& to) {
    for (const auto& [name, place] : touchedVrfs_) {
        if (const auto* vrf = this->vrf(name)) { to.emplace_back(VrfItem{vrf->id, name}); }
    }
    if (touchedVtis_) {
        VtisItem all;
        for (const auto& [name, vti] : vtis_) { all.record.vti.emplace(vti.name, vti); }
        to.emplace_back(std::move(all));
    }
    udpPorts_.take([&](const std::string& source, auto ports) {
        to.emplace_back(UdpPortsItem{source, {std::move(ports)}});
    });
    decapGroups_.take([&](const std::string& source, auto groups) {
        to.emplace_back(DecapGroupsItem{source, {std::move(groups)}});
    });
    for (const auto& [name, place] : touchedNextHops_) {
        if (const auto* nextHop = this->nextHop(name)) { to.emplace_back(item(*nextHop)); }
    }
    for (const auto& [id, place] : touchedFecs_) {
        if (const auto* fec = this->fec(id)) { to.emplace_back(item(*fec)); }
    }
    for (const auto& [key, place] : touchedRoutes_) {
        if (const auto* route = this->route(key)) {
            to.emplace_back(RouteItem{key, {route->fec, route->origin}});
        }
    }
}

FlexCounters::CounterIndex ScenarioState::indexOf(const CounterKey& key) const {
    if (!key.nextHop.empty()) { return FlexCounters::CounterIndex{indexOf(key.nextHop).value()}; }
    return tunnelCounter(key.fec).value_or(FlexCounters::CounterIndex{key.index});
}

void ScenarioState::takeCounters(Changes& to) {
    for (const CounterKey& key : touchedCounters_) {
        const auto at = counters_.find(key);
        if (at == counters_.end()) {
            to.emplace_back(CounterDel{indexOf(key)});
            continue;
        }
        DescribedCounter& counter = at->second;
        to.emplace_back(CounterItem{indexOf(key),
                                    std::exchange(counter.packets, std::nullopt),
                                    std::exchange(counter.octets, std::nullopt),
                                    counter.packetRate,
                                    counter.octetRate,
                                    counter.wrap});
    }
}

void ScenarioState::takeDeletes(Changes& to) {
    for (const auto& [key, place] : touchedRoutes_) {
        if (route(key) == nullptr) { to.emplace_back(RouteDel{key}); }
    }
    for (const auto& [id, place] : touchedFecs_) {
        if (fec(id) == nullptr) { to.emplace_back(FecDel{id}); }
    }
    for (const auto& [name, place] : touchedNextHops_) {
        if (nextHop(name) == nullptr) { to.emplace_back(NextHopDel{indexes_.at(name)}); }
    }
    for (const auto& [name, place] : touchedVrfs_) {
        if (vrf(name) == nullptr) {
            to.emplace_back(VrfIdDel{vrfIds_.at(name)});
            to.emplace_back(VrfTablesDel{name});
        }
    }
}

/// Also with `lax`: a table cannot stand without its VRF.
void ScenarioState::checkVrfs() {
    for (const auto& [key, place] : touchedRoutes_) {
        const auto* present = route(key);
        if (present != nullptr && vrf(key.vrf) == nullptr && !touchedVrfs_.contains(key.vrf)) {
            problems_.add(present->place, "there is no VRF " + inQuotes(key.vrf));
        }
    }
    for (const auto& [name, place] : touchedVrfs_) {
        const auto* routes = findIn(routesIn_, name);
        if (vrf(name) == nullptr && routes != nullptr) {
            problems_.add(place,
                          "the VRF " + inQuotes(name) + " is deleted, but still has " +
                              some(*routes, "route"));
        }
    }
}

void ScenarioState::checkReferences() {
    for (const auto& [name, place] : touchedNextHops_) {
        const auto* slots = findIn(slots_, name);
        if (nextHop(name) == nullptr && slots != nullptr) {
            problems_.add(place,
                          "the next hop " + inQuotes(name) + " is deleted, but still in " +
                              some(slots->size(), "FEC") + " (" + shown(slots->begin()->first) +
                              ")");
        }
    }
    for (const auto& [id, place] : touchedFecs_) {
        const auto* present = fec(id);
        const auto* routes = findIn(routesOf_, id);
        if (present == nullptr && routes != nullptr) {
            problems_.add(
                place,
                "the FEC " + shown(id) + " is deleted, but still has " + some(*routes, "route"));
        }
        for (std::size_t i = 0; present != nullptr && i < present->members.size(); ++i) {
            const DescribedMember& member = present->members[i];
            if (nextHop(member.nextHop) == nullptr && !touchedNextHops_.contains(member.nextHop)) {
                problems_.add(member.place, "there is no next hop " + inQuotes(member.nextHop));
            }
        }
    }
    for (const auto& [key, place] : touchedRoutes_) {
        const auto* present = route(key);
        if (present != nullptr && present->fec && fec(present->fec) == nullptr &&
            !touchedFecs_.contains(present->fec)) {
            problems_.add(present->place, "there is no FEC " + shown(present->fec));
        }
    }
}

const DescribedVrf* ScenarioState::vrfOfId(std::uint32_t id) const {
    const auto* name = findIn(vrfNames_, Vrf::VrfId{id});
    return name == nullptr ? nullptr : vrf(*name);
}

void ScenarioState::checkVrfReferences() {
    for (const auto& [name, place] : touchedNextHops_) {
        const auto* present = nextHop(name);
        if (present == nullptr) { continue; }
        for (const VrfReference* vrf : {&present->decapVrf, &present->fallbackVrf}) {
            if (vrf->id != 0 && vrfOfId(vrf->id) == nullptr) {
                problems_.add(vrf->place, "there is no VRF with the id " + std::to_string(vrf->id));
            }
        }
    }
    for (const auto& [name, place] : touchedVrfs_) {
        const auto* users = findIn(nextHopsTo_, vrfIds_.at(name).value());
        if (vrf(name) == nullptr && users != nullptr) {
            problems_.add(place,
                          "the VRF " + inQuotes(name) +
                              " is deleted, but next hops still name it (" + some(*users, "time") +
                              ")");
        }
    }
}

/// Of those that were touched, or whose next hop was.
void ScenarioState::checkCounters() {
    const auto check = [&](const CounterKey& key) {
        const auto* present = counter(key);
        if (present == nullptr) { return; }
        if (key.nextHop.empty()) {
            if (fec(key.fec) == nullptr) {
                problems_.add(present->place, "there is no FEC " + shown(key.fec));
            }
        } else if (nextHop(key.nextHop) == nullptr) {
            problems_.add(present->place, "there is no next hop " + inQuotes(key.nextHop));
        } else if (!owner(key.nextHop)) {
            problems_.add(
                present->place,
                "the next hop " + inQuotes(key.nextHop) + " is in no FEC, and so is not counted");
        }
    };
    for (const CounterKey& key : touchedCounters_) { check(key); }
    for (const auto& [name, place] : touchedNextHops_) { check(CounterKey{name, {}, 0}); }
}

}  // namespace Pel::Forwarder

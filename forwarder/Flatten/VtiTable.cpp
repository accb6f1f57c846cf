#include "forwarder/Flatten/VtiTable.h"

#include <algorithm>

namespace Pel::Forwarder {

using Nexo::AddressFamily;

namespace {

/// Of an encapsulation whose key is a VNI; the header has 24 bits for it.
std::uint32_t vniIn(const Encap& encap) {
    return static_cast<std::uint32_t>(encap.tunnelId & kMaxVni);
}

bool namesTunnel(const AdjacencyKey& key) {
    return key.encap != nullptr && key.encap->kind == EncapKind::Ip;
}

/// True when it is the first of its kind.
template <class Counts, class Key>
bool count(Counts& counts, std::uint32_t ifindex, const Key& key) {
    return ++counts[{ifindex, key}] == 1;
}

/// True when it was the last of its kind.
template <class Counts, class Key>
bool uncount(Counts& counts, std::uint32_t ifindex, const Key& key) {
    const auto at = counts.find({ifindex, key});
    if (at == counts.end() || --at->second > 0) { return false; }
    counts.erase(at);
    return true;
}

}  // namespace

// What an earlier run left

void VtiTable::restore(const Vxlan::VtiStatusDirRecord& record) {
    restored_ = record;
    taken_ = record;
    dirty_ = true;
    for (const auto& [name, status] : record.vti) {
        for (const auto& [vlan, vni] : status.vlanVniMap) { numbers_.restore(vlan, vni); }
    }
}

void VtiTable::forgetRestored() {
    if (restored_.vti.empty()) { return; }
    restored_ = {};
    numbers_.forgetRestored();
    allChanged();
}

const Vxlan::VtiStatus* VtiTable::restored(const Link& device) const {
    if (restored_.vti.empty()) { return nullptr; }
    const auto at = restored_.vti.find(Nexo::IntfId{device.name});
    return at == restored_.vti.end() ? nullptr : &at->second;
}

void VtiTable::recognised(const AdjacencyKey& key, const Stash::VxlanEncap& encap) {
    const Link* const device = deviceOf(key);
    const std::uint32_t vni = device == nullptr ? 0 : vniOf(key, *device);
    if (vni != 0) { numbers_.restore(encap.vlan, vni); }
}

// What changes

template <class Visit>
void VtiTable::forEachNamed(std::uint32_t ifindex, Visit visit) const {
    for (auto at = namedVnis_.lower_bound({ifindex, 0});
         at != namedVnis_.end() && at->first.first == ifindex;
         ++at) {
        visit(at->first.second);
    }
}

void VtiTable::allChanged() {
    for (const auto& [ifindex, vti] : vtis_) { stale_.insert(ifindex); }
    for (const std::uint32_t ifindex : fib_.vtis()) { stale_.insert(ifindex); }
}

void VtiTable::named(const AdjacencyKey& key) {
    if (!namesTunnel(key)) { return; }
    const std::uint32_t vni = vniIn(*key.encap);
    bool isNew = count(namedLocals_, key.ifindex, key.encap->local);
    if (vni != 0 && count(namedVnis_, key.ifindex, vni)) {
        isNew = true;
        // At once: the next hop is about to be rendered.
        const auto vti = vtis_.find(key.ifindex);
        if (vti != vtis_.end() && !vti->second.held.contains(vni) && numbers_.acquire(vni)) {
            vti->second.held.insert(vni);
        }
    }
    if (isNew) { stale_.insert(key.ifindex); }
}

void VtiTable::unnamed(const AdjacencyKey& key) {
    if (!namesTunnel(key)) { return; }
    const std::uint32_t vni = vniIn(*key.encap);
    const bool localGone = uncount(namedLocals_, key.ifindex, key.encap->local);
    if (uncount(namedVnis_, key.ifindex, vni) || localGone) { stale_.insert(key.ifindex); }
}

void VtiTable::refreshStale() {
    for (const std::uint32_t ifindex : stale_) { refresh(ifindex); }
    stale_.clear();
}

void VtiTable::refresh(std::uint32_t ifindex) {
    const Link* const device = fib_.link(ifindex);
    const bool present = device != nullptr && device->kind == LinkKind::Vxlan;
    const auto before = vtis_.find(ifindex);
    if (!present && before == vtis_.end()) { return; }
    const absl::btree_set<std::uint32_t> held =
        before == vtis_.end() ? absl::btree_set<std::uint32_t>{} : before->second.held;
    absl::btree_set<std::uint32_t> served;
    absl::btree_set<std::uint32_t> wanted;
    if (present) {
        served = servedVnis(*device);
        wanted = served;
        forEachNamed(ifindex, [&](std::uint32_t vni) { wanted.insert(vni); });
    }
    // New ones first, so that what stays keeps its number.
    absl::btree_set<std::uint32_t> now;
    for (const std::uint32_t vni : wanted) {
        if (held.contains(vni) || numbers_.acquire(vni)) { now.insert(now.end(), vni); }
    }
    for (const std::uint32_t vni : held) {
        if (!wanted.contains(vni)) { numbers_.release(vni); }
    }
    dirty_ = true;
    if (!present) {
        vtis_.erase(before);
        return;
    }
    Vti& vti = vtis_[ifindex];
    vti.held = std::move(now);
    vti.status = {Nexo::IntfId{device->name},
                  localOf(*device, AddressFamily::ipv4),
                  localOf(*device, AddressFamily::ipv6),
                  {}};
    for (const std::uint32_t vni : served) {
        const std::uint32_t vlan = vlanOf(*device, vni);
        if (vlan != 0) { vti.status.vlanVniMap.emplace(vlan, vni); }
    }
}

std::optional<Vxlan::VtiStatusDirRecord> VtiTable::take() {
    dirty_ = false;
    Vxlan::VtiStatusDirRecord now;
    for (const auto& [ifindex, vti] : vtis_) { now.vti[vti.status.name] = vti.status; }
    if (now.vti == taken_.vti) { return std::nullopt; }
    taken_ = now;
    return now;
}

// What a device says

absl::btree_set<std::uint32_t> VtiTable::servedVnis(const Link& device) const {
    absl::btree_set<std::uint32_t> result;
    if (device.vniFilter) {
        const VniRanges* const filter = fib_.vniFilter(device.ifindex);
        if (filter == nullptr) { return result; }
        for (const VniRange& range : filter->ranges()) {
            for (std::uint32_t vni = range.first;
                 vni <= range.last && result.size() < VlanNumbers::kCount;
                 ++vni) {
                result.insert(result.end(), vni);
            }
        }
        forEachNamed(device.ifindex, [&](std::uint32_t vni) {
            if (filter->contains(vni)) { result.insert(vni); }
        });
        return result;
    }
    if (!device.vxlanExternal) {
        if (device.vni != 0) { result.insert(device.vni); }
        return result;
    }
    if (const BridgePort* const port = fib_.vlansOf(device)) {
        for (const VlanVni& pair : port->vlanVnis) { result.insert(pair.vni); }
    }
    forEachNamed(device.ifindex, [&](std::uint32_t vni) { result.insert(vni); });
    if (const Vxlan::VtiStatus* const status = restored(device)) {
        for (const auto& [vlan, vni] : status->vlanVniMap) { result.insert(vni); }
    }
    return result;
}

/// 0: none.
std::uint32_t VtiTable::vlanOf(const Link& device, std::uint32_t vni) const {
    if (const BridgePort* const port = fib_.vlansOf(device)) {
        if (!device.vxlanExternal && port->accessVlan != 0) { return port->accessVlan; }
        const auto pair =
            std::lower_bound(port->vlanVnis.begin(),
                             port->vlanVnis.end(),
                             vni,
                             [](const VlanVni& p, std::uint32_t wanted) { return p.vni < wanted; });
        if (pair != port->vlanVnis.end() && pair->vni == vni) { return pair->vlan; }
    }
    return numbers_.find(vni);
}

Nexo::IpGenAddr VtiTable::localOf(const Link& device, AddressFamily family) const {
    if (!isNone(device.vxlanLocal)) {
        return device.vxlanLocal.family() == family ? device.vxlanLocal : Nexo::IpGenAddr{};
    }
    if (!device.vxlanExternal) { return {}; }
    if (const Vxlan::VtiStatus* const status = restored(device)) {
        return family == AddressFamily::ipv4 ? status->vtepAddr : status->vtepAddrV6;
    }
    Nexo::IpGenAddr result;
    for (auto at = namedLocals_.lower_bound({device.ifindex, {}});
         at != namedLocals_.end() && at->first.first == device.ifindex;
         ++at) {
        if (at->first.second.family() != family) { continue; }
        if (!isNone(result)) { return {}; }
        result = at->first.second;
    }
    return result;
}

const Link* VtiTable::deviceOf(const AdjacencyKey& key) const {
    const Link* const link = fib_.link(key.ifindex);
    if (link == nullptr) { return nullptr; }
    if (link->kind == LinkKind::Vxlan) {
        // An external device drops what does not say where it is to go.
        return !link->vxlanExternal || namesTunnel(key) ? link : nullptr;
    }
    if (link->kind != LinkKind::Bridge) { return nullptr; }
    const Link* const port = fib_.onlyPortVxlan(key.ifindex);
    return port != nullptr && !port->vxlanExternal ? port : nullptr;
}

/// 0: none.
std::uint32_t VtiTable::vniOf(const AdjacencyKey& key, const Link& device) {
    return device.vxlanExternal ? vniIn(*key.encap) : device.vni;
}

Stash::VxlanEncap VtiTable::encapOf(const AdjacencyKey& key, const Link& device) const {
    const std::uint32_t vni = vniOf(key, device);
    return {Nexo::IntfId{device.name}, vni == 0 ? 0 : vlanOf(device, vni)};
}

}  // namespace Pel::Forwarder

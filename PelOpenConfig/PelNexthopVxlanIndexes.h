#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <optional>

#include "model/Fec/OcNextHopIndex.h"
#include "model/Net/ExtendedVlanId.h"
#include "model/Net/IntfId.h"

namespace Pel::Oc {

/// The next hops of one VXLAN tunnel interface or VLAN, in the order of their ids.
template <class Id>
class ToNextHopIdMap {
public:
    using Set = absl::btree_set<Stash::OcNextHopIndex>;
    explicit ToNextHopIdMap(const Id& id) : id_{id} {}
    const Id& id() const { return id_; }
    const Set& nextHopId() const { return ids_; }
    void nextHopIs(Stash::OcNextHopIndex id) { ids_.insert(id); }
    void nextHopDel(Stash::OcNextHopIndex id) { ids_.erase(id); }
    void nextHopDelAll() { ids_.clear(); }

private:
    Id id_;
    Set ids_;
};

/// The next hops that are exported with VXLAN over one tunnel interface.
struct VtiToNextHopIdMap final : ToNextHopIdMap<Nexo::IntfId> {
    using ToNextHopIdMap::ToNextHopIdMap;
    const Nexo::IntfId& vtiId() const { return id(); }
};

/// The next hops that are exported with VXLAN on one VLAN, whatever their tunnel interface.
struct VlanToNextHopIdMap final : ToNextHopIdMap<Nexo::ExtendedVlanId> {
    using ToNextHopIdMap::ToNextHopIdMap;
    Nexo::ExtendedVlanId vlanId() const { return id(); }
};

/// Where a next hop is indexed.
struct NextHopVxlanInfo {
    Nexo::IntfId vtiId;
    Nexo::ExtendedVlanId vlanId;
    friend bool operator==(const NextHopVxlanInfo&, const NextHopVxlanInfo&) = default;
};

/// Which next hops a change of a VXLAN tunnel interface concerns.
///
/// A next hop is in the entry of tunnel interface V and in that of VLAN L exactly when its shadow
/// record holds V and L. There are no entries without next hops. All are ordered trees, since
/// a hash table of a million grows in one long go.
class NexthopVxlanIndexes {
public:
    using NextHopIds = VtiToNextHopIdMap::Set;

    /// What is indexed of this next hop; null when nothing is. Valid until something changes.
    const NextHopVxlanInfo* nextHopVxlanInfo(Stash::OcNextHopIndex nhId) const {
        if (nextHopVxlanInfoShadowMap_.empty()) { return nullptr; }  // the usual case costs nothing
        const auto it = nextHopVxlanInfoShadowMap_.find(nhId);
        return it == nextHopVxlanInfoShadowMap_.end() ? nullptr : &it->second;
    }
    /// Puts a next hop that is in no entry into those of its tunnel interface and its VLAN.
    void nextHopIs(Stash::OcNextHopIndex nhId, const NextHopVxlanInfo& info);
    /// Takes a next hop out of both entries and the shadow map. Harmless when it is not there.
    void nextHopDel(Stash::OcNextHopIndex nhId);

    const auto& vtiToNextHopIdMap() const { return vtiToNextHopIdMap_; }
    const auto& vlanToNextHopIdMap() const { return vlanToNextHopIdMap_; }
    const auto& nextHopVxlanInfoShadowMap() const { return nextHopVxlanInfoShadowMap_; }

private:
    VtiToNextHopIdMap& vtiToNextHopIdMapIs(const Nexo::IntfId& vti) {
        return vtiToNextHopIdMap_.try_emplace(vti, vti).first->second;
    }
    VlanToNextHopIdMap& vlanToNextHopIdMapIs(Nexo::ExtendedVlanId vlan) {
        return vlanToNextHopIdMap_.try_emplace(vlan, vlan).first->second;
    }
    NextHopVxlanInfo& nextHopVxlanInfoShadowMapIs(Stash::OcNextHopIndex nhId) {
        return nextHopVxlanInfoShadowMap_[nhId];
    }
    void vtiToNextHopIdMapDel(const Nexo::IntfId& vti) { vtiToNextHopIdMap_.erase(vti); }
    void vlanToNextHopIdMapDel(Nexo::ExtendedVlanId vlan) { vlanToNextHopIdMap_.erase(vlan); }
    void nextHopVxlanInfoShadowMapDel(Stash::OcNextHopIndex nhId) {
        nextHopVxlanInfoShadowMap_.erase(nhId);
    }

    absl::btree_map<Nexo::IntfId, VtiToNextHopIdMap> vtiToNextHopIdMap_;
    absl::btree_map<Nexo::ExtendedVlanId, VlanToNextHopIdMap> vlanToNextHopIdMap_;
    absl::btree_map<Stash::OcNextHopIndex, NextHopVxlanInfo> nextHopVxlanInfoShadowMap_;
};

}  // namespace Pel::Oc

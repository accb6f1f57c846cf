#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "forwarder/Flatten/AdjacencyTable.h"
#include "forwarder/Flatten/Fib.h"
#include "forwarder/Flatten/VlanNumbers.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Vxlan/VtiStatusDir.h"

namespace Pel::Forwarder {

/// The VXLAN devices as tunnel interfaces: local address, and the VNI of each VLAN.
///
///   device                     VNIs                                VLAN of a VNI
///   of one VNI                 that one                            the access VLAN of its port
///   external, VNI filter       those in the filter                 the one that its port maps to it
///   external                   mapped by its port, or named by     otherwise an internal number
///                              the encapsulation of a next hop     (VlanNumbers)
///
/// A port's VLANs count where its bridge tells VLANs apart. A device without a local address shows
/// the one that its next hops send from, if that is one for all.
///
/// Belongs to Flatten: update(), then next hops may be rendered, then update() and take().
class VtiTable {
public:
    explicit VtiTable(const Fib& fib) : fib_{fib} {}

    /// What an earlier run published. Until forgetRestored() its VNIs stay with the devices whose
    /// VNIs are those of next hops, which come one by one.
    void restore(const Vxlan::VtiStatusDirRecord& record);
    void forgetRestored();
    /// A next hop that an earlier run published, and later the adjacency that it turns out to have:
    /// its VLAN stays with its VNI although the device does not serve that.
    void restore(const Stash::VxlanEncap& encap) { numbers_.passOver(encap.vlan); }
    void recognised(const AdjacencyKey& key, const Stash::VxlanEncap& encap);

    /// The device, its filter or its port's VLANs have changed.
    void changed(std::uint32_t ifindex) { stale_.insert(ifindex); }
    void allChanged();
    /// A next hop comes to use, or leaves, the adjacency.
    void named(const AdjacencyKey& key);
    void unnamed(const AdjacencyKey& key);
    /// Works off what has changed.
    void update() {
        if (!stale_.empty()) { refreshStale(); }
    }
    /// Whether the directory may be another one than the last that was taken.
    bool dirty() const { return dirty_; }
    /// The directory, when it is.
    std::optional<Vxlan::VtiStatusDirRecord> take();

    /// The tunnel interface that an adjacency leaves by; null: none.
    const Link* deviceOf(const AdjacencyKey& key) const;
    /// How many next hops name the VNI.
    std::size_t nextHopsOf(std::uint32_t ifindex, std::uint32_t vni) const {
        const auto at = namedVnis_.find({ifindex, vni});
        return at == namedVnis_.end() ? 0 : at->second;
    }
    /// What it says of the VXLAN header; `device` is that of the adjacency.
    Stash::VxlanEncap encapOf(const AdjacencyKey& key, const Link& device) const;

private:
    struct Vti {
        Vxlan::VtiStatus status;
        absl::btree_set<std::uint32_t> held;  // VNIs whose numbers we use
    };
    template <class Key>
    using Counts = absl::btree_map<std::pair<std::uint32_t, Key>, std::uint32_t>;  // by ifindex

    void refreshStale();
    void refresh(std::uint32_t ifindex);
    template <class Visit>
    void forEachNamed(std::uint32_t ifindex, Visit visit) const;
    absl::btree_set<std::uint32_t> servedVnis(const Link& device) const;
    static std::uint32_t vniOf(const AdjacencyKey& key, const Link& device);
    std::uint32_t vlanOf(const Link& device, std::uint32_t vni) const;
    Nexo::IpGenAddr localOf(const Link& device, Nexo::AddressFamily family) const;
    const Vxlan::VtiStatus* restored(const Link& device) const;

    const Fib& fib_;
    VlanNumbers numbers_;
    absl::btree_map<std::uint32_t, Vti> vtis_;
    Counts<std::uint32_t> namedVnis_;
    Counts<Nexo::IpGenAddr> namedLocals_;
    absl::btree_set<std::uint32_t> stale_;
    Vxlan::VtiStatusDirRecord restored_;
    Vxlan::VtiStatusDirRecord taken_;
    bool dirty_ = false;
};

}  // namespace Pel::Forwarder

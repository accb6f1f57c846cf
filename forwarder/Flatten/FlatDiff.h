#pragma once

#include <absl/container/inlined_vector.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "forwarder/Flatten/FibMessages.h"
#include "forwarder/Flatten/OriginProtocol.h"
#include "model/Fec/FecId.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Vxlan/VtiStatusDir.h"

namespace Pel::Forwarder {

/// Identity of a published next hop; 0 is none.
using OcNextHopNumber = std::uint64_t;

/// What a next hop puts before the packet, as far as a record can say it.
struct FlatEncap {
    std::vector<std::uint32_t> labels;  ///< pushed, 20 bits each, top of stack first
    std::optional<Stash::GueEncap> udp;
    std::optional<Stash::VxlanEncap> vxlan;
    bool operator==(const FlatEncap&) const = default;
};

using FlatEncapPtr = std::shared_ptr<const FlatEncap>;

struct FlatNextHop {
    OcNextHopNumber index = 0;
    FecId fecId;
    std::uint32_t slot = 0;  ///< position in the FEC, also the group entry index
    std::string interfaceName;
    std::string parentName;          ///< of a VLAN interface: the interface below, else ""
    std::uint32_t subinterface = 0;  ///< of a VLAN interface: the VLAN id, else 0
    Nexo::IpGenAddr address;         ///< none for a connected next hop
    std::optional<Nexo::EthAddr> mac;
    FlatEncapPtr encap;  ///< null: none
};

/// Compares encapsulations by content.
bool operator==(const FlatNextHop& a, const FlatNextHop& b);

struct FlatMember {
    OcNextHopNumber index = 0;
    std::uint32_t weight = 1;
    bool operator==(const FlatMember&) const = default;
};

struct FlatFec {
    FecId id;
    bool top = true;
    std::uint64_t programmedId = 0;  ///< the kernel's object number; 0 when it has none
    std::string name;
    absl::InlinedVector<FlatMember, 4> members;  ///< in slot order
    bool operator==(const FlatFec&) const = default;
};

struct FlatRouteKey {
    std::string vrf;
    Nexo::IpPrefix prefix;
    auto operator<=>(const FlatRouteKey&) const = default;
};

struct FlatRoute {
    FlatRouteKey key;
    FecId fecId;
    OriginProtocol origin = OriginProtocol::unset;
    bool operator==(const FlatRoute&) const = default;
};

struct FlatVrf {
    std::uint32_t table = 0;
    std::string name;
    bool operator==(const FlatVrf&) const = default;
};

/// One batch of changes. To be applied in the order of the members, so that nothing ever refers to
/// what is not there, and a VRF's name is free before another table takes it.
struct FlatDiff {
    std::vector<FlatRouteKey> routeDeletes;
    std::vector<std::uint32_t> vrfDeletes;
    std::vector<FlatVrf> vrfs;
    std::vector<Vxlan::VtiStatusDirRecord> vtis;  ///< at most one: the whole directory
    std::vector<FlatNextHop> nextHops;
    std::vector<FlatFec> fecs;
    std::vector<FlatRoute> routes;
    std::vector<FecId> fecDeletes;
    std::vector<OcNextHopNumber> nextHopDeletes;

    std::size_t size() const {
        return vrfs.size() + nextHops.size() + fecs.size() + routes.size() + routeDeletes.size() +
               fecDeletes.size() + nextHopDeletes.size() + vrfDeletes.size() + vtis.size();
    }
    bool empty() const { return size() == 0; }
    void clear();
};

}  // namespace Pel::Forwarder

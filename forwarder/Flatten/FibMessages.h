#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/Net/EthAddr.h"
#include "model/Net/IpGenAddr.h"
#include "model/Net/IpPrefix.h"

/// What the sources (kernel, FPM) say about the forwarding state, decoded and free of wire detail.
namespace Pel::Forwarder {

inline bool isNone(const Nexo::IpGenAddr& address) {
    return address.family() == Nexo::AddressFamily::none;
}

enum class LinkKind : std::uint8_t { Other, Vlan, Vrf, Vxlan, Bridge, Bareudp };

struct Link {
    std::uint32_t ifindex = 0;
    std::string name;
    LinkKind kind = LinkKind::Other;
    std::uint32_t parent = 0;    ///< ifindex of the device below; 0 none
    std::uint16_t vlanId = 0;    ///< kind Vlan
    std::uint32_t vrfTable = 0;  ///< kind Vrf
    std::uint32_t vni = 0;       ///< kind Vxlan; 0 when the device serves many
    Nexo::IpGenAddr vxlanLocal;  ///< kind Vxlan, when set
    bool vxlanExternal = false;  ///< kind Vxlan: the VNI comes with the packet
    bool vniFilter = false;      ///< kind Vxlan: serves the VNIs of its filter only
    bool vlanFiltering = false;  ///< kind Bridge: tells VLANs apart
    std::uint32_t master = 0;    ///< ifindex of the VRF device or bridge above; 0 none
    bool up = false;             ///< set up by the administrator
    bool running = false;        ///< has carrier
    bool operator==(const Link&) const = default;
};

inline constexpr std::uint32_t kMaxVni = 0xFF'FFFFU;

/// VNIs from 1 to kMaxVni, both ends included.
struct VniRange {
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    bool operator==(const VniRange&) const = default;
};

/// What a VXLAN device has sent with one VNI of its filter, since the VNI came into it.
struct VniCount {
    std::uint32_t vni = 0;
    std::uint64_t packets = 0;
    std::uint64_t octets = 0;
    bool operator==(const VniCount&) const = default;
};

/// VNIs that come into, or leave, the filter of a VXLAN device.
struct VniFilter {
    std::uint32_t ifindex = 0;
    std::vector<VniRange> ranges;
    std::vector<VniCount> counts = {};  ///< only in answers that carry statistics
};

struct VlanVni {
    std::uint16_t vlan = 0;
    std::uint32_t vni = 0;
    bool operator==(const VlanVni&) const = default;
    bool operator<(const VlanVni& other) const {
        return vni != other.vni ? vni < other.vni : vlan < other.vlan;
    }
};

/// The VLANs of a port, as its bridge has them.
struct BridgePort {
    std::uint32_t ifindex = 0;
    std::uint16_t accessVlan = 0;   ///< of untagged frames; 0 none
    std::vector<VlanVni> vlanVnis;  ///< of a VXLAN device that serves many VNIs; ordered by VNI
    bool operator==(const BridgePort&) const = default;
};

struct Neighbour {
    std::uint32_t ifindex = 0;
    Nexo::IpGenAddr address;
    std::optional<Nexo::EthAddr> mac;  ///< none while the entry is unresolved or failed
};

enum class EncapKind : std::uint8_t { Mpls, Ip, Other };

/// An encapsulation that a next hop applies.
struct Encap {
    EncapKind kind = EncapKind::Other;
    std::uint16_t wireType = 0;  ///< the kernel's number, for kind Other
    std::uint8_t ttl = 0;        ///< 0 = not set
    std::uint8_t tos = 0;
    std::uint64_t tunnelId = 0;         ///< kind Ip: key, or VNI on a VXLAN device
    Nexo::IpGenAddr local;              ///< kind Ip
    Nexo::IpGenAddr remote;             ///< kind Ip
    std::vector<std::uint32_t> labels;  ///< kind Mpls: 20-bit labels, top of stack first
    std::vector<std::byte> opaque;      ///< kind Other: the nested attribute as it came
    auto operator<=>(const Encap&) const = default;
};

using EncapPtr = std::shared_ptr<const Encap>;

/// One way out: a gateway on an interface.
struct Path {
    Nexo::IpGenAddr gateway;  ///< none: the destination is on the link
    std::uint32_t ifindex = 0;
    std::uint32_t weight = 1;  ///< 1..65536
    bool dead = false;         ///< the kernel lists the path and does not use it
    EncapPtr encap;            ///< null: none
};

struct NexthopGroupEntry {
    std::uint32_t id = 0;
    std::uint32_t weight = 1;   ///< 1..65536
    std::uint64_t packets = 0;  ///< only in answers that carry statistics
    bool operator==(const NexthopGroupEntry&) const = default;
};

struct Nexthop {
    std::uint32_t id = 0;
    bool blackhole = false;
    bool fdb = false;  ///< layer-2 multihoming; never a route's next hop
    bool isGroup = false;
    bool hasStatistics = false;
    Path path;  ///< neither blackhole nor group
    std::vector<NexthopGroupEntry> group;
};

/// Unspecified: a deletion that does not say; Other: what a router receives rather than forwards.
enum class RouteType : std::uint8_t {
    Unspecified,
    Unicast,
    Blackhole,
    Unreachable,
    Prohibit,
    Other
};

struct Route {
    std::uint32_t table = 0;
    Nexo::IpPrefix prefix;
    std::uint32_t metric = 0;
    std::uint8_t protocol = 0;  ///< the kernel's number
    RouteType type = RouteType::Unspecified;
    bool cloned = false;          ///< a cache entry, not part of the table
    bool sourceOrTos = false;     ///< selected by more than the destination
    std::uint32_t nexthopId = 0;  ///< 0: the paths count
    std::vector<Path> paths;
};

}  // namespace Pel::Forwarder

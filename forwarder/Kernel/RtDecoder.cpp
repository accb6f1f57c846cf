#include "forwarder/Kernel/RtDecoder.h"

#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "forwarder/Kernel/AttributeReader.h"

namespace Pel::Forwarder {

using Nexo::AddressFamily;

namespace {

// Numbers that the distribution's headers do not have.
constexpr std::uint32_t kLinkUp = 1U << 0;
constexpr std::uint32_t kLinkRunning = 1U << 6;
constexpr std::uint32_t kLinkLowerUp = 1U << 16;
constexpr std::uint16_t kNexthopGroupStats = 15;
constexpr std::uint16_t kVlanId = 1;
constexpr std::uint16_t kVrfTable = 1;
constexpr std::uint16_t kVxlanId = 1;
constexpr std::uint16_t kVxlanLocal = 4;
constexpr std::uint16_t kVxlanLocal6 = 17;
constexpr std::uint16_t kVxlanCollectMetadata = 25;
constexpr std::uint16_t kVxlanVniFilter = 30;
constexpr std::uint16_t kBridgeVlanFiltering = 7;
constexpr std::uint16_t kPortVlanInfo = 2;
constexpr std::uint16_t kPortVlanTunnelInfo = 3;
constexpr std::uint16_t kVlanIsAccess = 2;
constexpr std::uint16_t kRangeBegin = 8;
constexpr std::uint16_t kRangeEnd = 16;
constexpr std::uint16_t kMaxVlan = 4094;
constexpr std::uint16_t kNewTunnel = 120;
constexpr std::uint16_t kDelTunnel = 121;
constexpr std::uint16_t kVniEntry = 1;
constexpr std::uint16_t kVniStatistics = 5;
constexpr std::uint16_t kVniSentOctets = 5;
constexpr std::uint16_t kVniSentPackets = 6;
constexpr std::uint16_t kEncapMpls = 1;
constexpr std::uint16_t kEncapIp = 2;
constexpr std::uint16_t kEncapIp6 = 4;

AddressFamily familyOf(std::uint8_t addressFamily) {
    if (addressFamily == AF_INET) { return AddressFamily::ipv4; }
    return addressFamily == AF_INET6 ? AddressFamily::ipv6 : AddressFamily::none;
}

std::uint64_t fromBigEndian(Bytes bytes) {
    std::uint64_t value = 0;
    for (const std::byte b : bytes.first(std::min<std::size_t>(bytes.size(), 8))) {
        value = value << 8 | static_cast<std::uint8_t>(b);
    }
    return value;
}

std::string text(Bytes bytes) {
    std::string result(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    result.resize(std::min(result.size(), result.find('\0')));
    return result;
}

/// The fixed header of a message and the attributes behind it.
template <class Header>
struct Parsed {
    Header header;
    AttributeTable attributes;
};

template <class Header>
std::optional<Parsed<Header>> parse(Bytes payload) {
    const auto header = readValue<Header>(payload);
    if (!header) { return std::nullopt; }
    const std::size_t begin = std::min(NLMSG_ALIGN(sizeof(Header)), payload.size());
    Parsed<Header> result{*header, AttributeTable{payload.subspan(begin)}};
    if (result.attributes.broken()) { return std::nullopt; }
    return result;
}

// Links

void decodeKind(Bytes info, Link& link) {
    const AttributeTable attributes{info};
    const AttributeTable data{attributes[IFLA_INFO_DATA]};
    const std::string kind = text(attributes[IFLA_INFO_KIND]);
    if (kind == "vlan") {
        link.kind = LinkKind::Vlan;
        link.vlanId = data.value<std::uint16_t>(kVlanId, 0);
    } else if (kind == "vrf") {
        link.kind = LinkKind::Vrf;
        link.vrfTable = data.value<std::uint32_t>(kVrfTable, 0);
    } else if (kind == "vxlan") {
        link.kind = LinkKind::Vxlan;
        link.vni = data.value<std::uint32_t>(kVxlanId, 0);
        link.vxlanLocal =
            data.has(kVxlanLocal) ? data.address(kVxlanLocal) : data.address(kVxlanLocal6);
        link.vxlanExternal = data.number(kVxlanCollectMetadata) != 0;
        link.vniFilter = data.number(kVxlanVniFilter) != 0;
    } else if (kind == "bridge") {
        link.kind = LinkKind::Bridge;
        link.vlanFiltering = data.number(kBridgeVlanFiltering) != 0;
    } else if (kind == "bareudp") {
        link.kind = LinkKind::Bareudp;
    }
}

std::optional<Link> decodeLink(Bytes payload, bool removed) {
    const auto parsed = parse<ifinfomsg>(payload);
    if (!parsed || parsed->header.ifi_index <= 0) { return std::nullopt; }
    const AttributeTable& attributes = parsed->attributes;
    Link link;
    link.ifindex = static_cast<std::uint32_t>(parsed->header.ifi_index);
    link.name = text(attributes[IFLA_IFNAME]);
    if (link.name.empty() && !removed) {
        return std::nullopt;
    }  // wireless events: nothing about the link
    // A parent in another network namespace has a number there, not here.
    link.parent =
        attributes.has(IFLA_LINK_NETNSID) ? 0 : attributes.value<std::uint32_t>(IFLA_LINK, 0);
    link.master = attributes.value<std::uint32_t>(IFLA_MASTER, 0);
    link.up = (parsed->header.ifi_flags & kLinkUp) != 0;
    link.running = (parsed->header.ifi_flags & (kLinkRunning | kLinkLowerUp)) != 0;
    decodeKind(attributes[IFLA_LINKINFO], link);
    return link;
}

// Bridge ports

/// One end of a range of VLANs, or a single one.
struct TunnelInfo {
    std::uint32_t vni = 0;
    std::uint16_t vlan = 0;
    std::uint16_t flags = 0;
};

void addVlanVnis(const TunnelInfo& first, const TunnelInfo& last, BridgePort& port) {
    const bool valid = first.vlan > 0 && first.vlan <= last.vlan && last.vlan <= kMaxVlan &&
                       first.vni > 0 && last.vni <= kMaxVni &&
                       std::uint64_t{last.vni} == std::uint64_t{first.vni} + last.vlan - first.vlan;
    for (std::uint16_t i = 0; valid && i <= last.vlan - first.vlan; ++i) {
        port.vlanVnis.push_back({static_cast<std::uint16_t>(first.vlan + i), first.vni + i});
    }
}

void decodePortVlans(Bytes list, BridgePort& port) {
    std::optional<TunnelInfo> begin;
    AttributeReader entries{list};
    while (const auto entry = entries.next()) {
        if (entry->type == kPortVlanInfo) {
            const auto flags = readValue<std::uint16_t>(entry->payload);
            const auto vlan = readValue<std::uint16_t>(entry->payload, 2);
            const bool access = flags && vlan && (*flags & kVlanIsAccess) != 0;
            if (access && *vlan <= kMaxVlan) { port.accessVlan = *vlan; }
        } else if (entry->type == kPortVlanTunnelInfo) {
            const AttributeTable values{entry->payload};
            const TunnelInfo info{values.value<std::uint32_t>(1, 0),
                                  values.value<std::uint16_t>(2, 0),
                                  values.value<std::uint16_t>(3, 0)};
            if ((info.flags & kRangeBegin) != 0) {
                begin = info;
                continue;
            }
            const bool ends = (info.flags & kRangeEnd) != 0 && begin;
            addVlanVnis(ends ? *begin : info, info, port);
            begin.reset();
        }
    }
    std::sort(port.vlanVnis.begin(), port.vlanVnis.end());
}

std::optional<BridgePort> decodeBridgePort(Bytes payload) {
    const auto parsed = parse<ifinfomsg>(payload);
    if (!parsed || parsed->header.ifi_index <= 0) { return std::nullopt; }
    BridgePort port;
    port.ifindex = static_cast<std::uint32_t>(parsed->header.ifi_index);
    decodePortVlans(parsed->attributes[IFLA_AF_SPEC], port);
    return port;
}

bool isBridgePort(Bytes payload) {
    return readValue<std::uint8_t>(payload).value_or(AF_UNSPEC) == AF_BRIDGE;
}

// VNI filters

/// The fixed header, which the distribution's headers do not have.
struct TunnelHeader {
    std::uint8_t family;
    std::uint8_t flags;
    std::uint16_t reserved;
    std::uint32_t ifindex;
};

std::optional<VniFilter> decodeVniFilter(Bytes payload) {
    const auto header = readValue<TunnelHeader>(payload);
    if (!header || header->family != AF_BRIDGE || header->ifindex == 0) { return std::nullopt; }
    VniFilter filter;
    filter.ifindex = header->ifindex;
    AttributeReader entries{payload.subspan(sizeof(TunnelHeader))};
    while (const auto entry = entries.next()) {
        if (entry->type != kVniEntry) { continue; }
        const AttributeTable values{entry->payload};
        const auto first = values.value<std::uint32_t>(1, 0);
        const VniRange range{first, values.value<std::uint32_t>(2, first)};
        const bool valid = range.first > 0 && range.first <= range.last && range.last <= kMaxVni;
        if (!valid) { continue; }
        filter.ranges.push_back(range);
        // Of one VNI each: the kernel puts VNIs with statistics into no range.
        if (!values.has(kVniStatistics) || range.first != range.last) { continue; }
        const AttributeTable counts{values[kVniStatistics]};
        filter.counts.push_back(
            {range.first, counts.number(kVniSentPackets), counts.number(kVniSentOctets)});
    }
    if (entries.broken()) { return std::nullopt; }
    return filter;
}

// Neighbours

std::optional<Neighbour> decodeNeighbour(Bytes payload) {
    const auto parsed = parse<ndmsg>(payload);
    if (!parsed || familyOf(parsed->header.ndm_family) == AddressFamily::none) {
        return std::nullopt;
    }
    Neighbour neighbour;
    neighbour.ifindex = static_cast<std::uint32_t>(parsed->header.ndm_ifindex);
    neighbour.address = parsed->attributes.address(NDA_DST);
    if (neighbour.address.family() != familyOf(parsed->header.ndm_family)) { return std::nullopt; }
    const Bytes mac = parsed->attributes[NDA_LLADDR];
    const bool usable = (parsed->header.ndm_state & (NUD_INCOMPLETE | NUD_FAILED)) == 0 &&
                        parsed->header.ndm_state != NUD_NONE;
    if (usable && mac.size() == sizeof(Nexo::EthAddr)) {
        neighbour.mac = readValue<Nexo::EthAddr>(mac);
    }
    return neighbour;
}

// Encapsulations

void decodeLabels(Bytes words, Encap& encap) {
    for (; words.size() >= 4; words = words.subspan(4)) {
        const auto word = static_cast<std::uint32_t>(fromBigEndian(words.first(4)));
        encap.labels.push_back(word >> 12);
        if ((word & 0x100U) != 0) { return; }  // bottom of stack
    }
}

EncapPtr decodeEncap(std::uint16_t type, Bytes nest) {
    if (type == 0) { return nullptr; }
    auto encap = std::make_shared<Encap>();
    const AttributeTable attributes{nest};
    switch (type) {
        case kEncapMpls:
            encap->kind = EncapKind::Mpls;
            decodeLabels(attributes[1], *encap);
            encap->ttl = attributes.value<std::uint8_t>(2, 0);
            break;
        case kEncapIp:
        case kEncapIp6:
            encap->kind = EncapKind::Ip;
            encap->tunnelId = fromBigEndian(attributes[1]);
            encap->remote = attributes.address(2);
            encap->local = attributes.address(3);
            encap->ttl = attributes.value<std::uint8_t>(4, 0);
            encap->tos = attributes.value<std::uint8_t>(5, 0);
            break;
        default:
            encap->wireType = type;
            encap->opaque.assign(nest.begin(), nest.end());
            break;
    }
    return encap;
}

// Nexthop objects

/// One entry of NHA_GROUP. The kernel's header names the bytes differently from version to version.
struct GroupMember {
    std::uint32_t id;
    std::uint8_t weightLow;   // of "weight - 1"
    std::uint8_t weightHigh;  // kernels before wide weights and zebra leave it 0
    std::uint16_t reserved;
};
static_assert(sizeof(GroupMember) == sizeof(nexthop_grp));

std::uint32_t groupWeight(const GroupMember& entry) {
    return 1U + entry.weightLow + (static_cast<std::uint32_t>(entry.weightHigh) << 8);
}

void decodeStatistics(Bytes nest, Nexthop& nexthop) {
    AttributeReader entries{nest};
    while (const auto entry = entries.next()) {
        const AttributeTable values{entry->payload};
        const auto id = values.value<std::uint32_t>(1, 0);
        for (NexthopGroupEntry& member : nexthop.group) {
            if (member.id == id) { member.packets = values.number(2); }
        }
    }
}

std::optional<Nexthop> decodeNexthop(Bytes payload, bool removed) {
    const auto parsed = parse<nhmsg>(payload);
    if (!parsed) { return std::nullopt; }
    const AttributeTable& attributes = parsed->attributes;
    Nexthop nexthop;
    nexthop.id = attributes.value<std::uint32_t>(NHA_ID, 0);
    if (nexthop.id == 0) { return std::nullopt; }
    if (removed) { return nexthop; }
    nexthop.blackhole = attributes.has(NHA_BLACKHOLE);
    nexthop.fdb = attributes.has(NHA_FDB);
    nexthop.isGroup = attributes.has(NHA_GROUP);
    if (nexthop.isGroup) {
        const Bytes entries = attributes[NHA_GROUP];
        if (entries.empty() || entries.size() % sizeof(GroupMember) != 0) { return std::nullopt; }
        for (std::size_t at = 0; at < entries.size(); at += sizeof(GroupMember)) {
            const auto entry = *readValue<GroupMember>(entries, at);
            nexthop.group.push_back({entry.id, groupWeight(entry), 0});
        }
        nexthop.hasStatistics = attributes.has(kNexthopGroupStats);
        decodeStatistics(attributes[kNexthopGroupStats], nexthop);
        return nexthop;
    }
    nexthop.path.ifindex = attributes.value<std::uint32_t>(NHA_OIF, 0);
    nexthop.path.gateway = attributes.address(NHA_GATEWAY);
    nexthop.path.encap =
        decodeEncap(attributes.value<std::uint16_t>(NHA_ENCAP_TYPE, 0), attributes[NHA_ENCAP]);
    return nexthop;
}

// Routes

/// RTA_VIA: an address of another family than the route's.
Nexo::IpGenAddr viaAddress(Bytes via) {
    const auto family = readValue<std::uint16_t>(via);
    if (!family) { return {}; }
    const AddressFamily wanted = familyOf(static_cast<std::uint8_t>(*family & 0xFF));
    const std::size_t width = wanted == AddressFamily::ipv6   ? 16
                              : wanted == AddressFamily::ipv4 ? 4
                                                              : 0;
    if (*family > 0xFF || via.size() < 2 + width) { return {}; }
    return addressOf(via.subspan(2, width));  // FRR pads the rest with anything
}

Path decodePath(const AttributeTable& attributes, std::uint32_t ifindex, std::uint32_t flags) {
    Path path;
    path.ifindex = ifindex;
    path.dead = (flags & RTNH_F_DEAD) != 0;
    path.gateway =
        attributes.has(RTA_VIA) ? viaAddress(attributes[RTA_VIA]) : attributes.address(RTA_GATEWAY);
    path.encap =
        decodeEncap(attributes.value<std::uint16_t>(RTA_ENCAP_TYPE, 0), attributes[RTA_ENCAP]);
    return path;
}

bool decodeMultipath(Bytes list, Route& route) {
    while (!list.empty()) {
        const auto hop = readValue<rtnexthop>(list);
        if (!hop || hop->rtnh_len < sizeof(rtnexthop) || hop->rtnh_len > list.size()) {
            return false;
        }
        const AttributeTable attributes{
            list.subspan(sizeof(rtnexthop), hop->rtnh_len - sizeof(rtnexthop))};
        if (attributes.broken()) { return false; }
        route.paths.push_back(
            decodePath(attributes, static_cast<std::uint32_t>(hop->rtnh_ifindex), hop->rtnh_flags));
        route.paths.back().weight = 1U + hop->rtnh_hops;
        list = list.subspan(std::min<std::size_t>(RTNH_ALIGN(hop->rtnh_len), list.size()));
    }
    return true;
}

RouteType routeType(std::uint8_t type) {
    switch (type) {
        case RTN_UNSPEC:
            return RouteType::Unspecified;
        case RTN_UNICAST:
            return RouteType::Unicast;
        case RTN_BLACKHOLE:
            return RouteType::Blackhole;
        case RTN_UNREACHABLE:
            return RouteType::Unreachable;
        case RTN_PROHIBIT:
            return RouteType::Prohibit;
        default:
            return RouteType::Other;
    }
}

/// The destination, or none when its length is impossible. A default route has no address
/// attribute.
std::optional<Nexo::IpPrefix> destination(const rtmsg& header, Bytes address) {
    const AddressFamily family = familyOf(header.rtm_family);
    const std::size_t width = family == AddressFamily::ipv6 ? 16 : 4;
    if (header.rtm_dst_len > width * 8) { return std::nullopt; }
    const std::array<std::byte, 16> zero{};
    if (address.empty() && header.rtm_dst_len == 0) { address = Bytes{zero}.first(width); }
    if (address.size() != width) { return std::nullopt; }
    return Nexo::IpPrefix{addressOf(address), header.rtm_dst_len};
}

std::optional<Route> decodeRoute(Bytes payload) {
    const auto parsed = parse<rtmsg>(payload);
    if (!parsed || familyOf(parsed->header.rtm_family) == AddressFamily::none) {
        return std::nullopt;
    }
    const rtmsg& header = parsed->header;
    const AttributeTable& attributes = parsed->attributes;
    const auto prefix = destination(header, attributes[RTA_DST]);
    if (!prefix) { return std::nullopt; }
    Route route;
    route.prefix = *prefix;
    route.table = attributes.value<std::uint32_t>(RTA_TABLE, header.rtm_table);
    route.metric = attributes.value<std::uint32_t>(RTA_PRIORITY, 0);
    route.protocol = header.rtm_protocol;
    route.type = routeType(header.rtm_type);
    route.cloned = (header.rtm_flags & RTM_F_CLONED) != 0;
    route.sourceOrTos = header.rtm_src_len != 0 || header.rtm_tos != 0;
    route.nexthopId = attributes.value<std::uint32_t>(RTA_NH_ID, 0);
    if (route.nexthopId != 0) {
        return route;
    }  // the paths beside it are a copy, with narrower weights
    if (attributes.has(RTA_MULTIPATH)) {
        if (!decodeMultipath(attributes[RTA_MULTIPATH], route)) { return std::nullopt; }
        return route;
    }
    const auto ifindex = attributes.value<std::uint32_t>(RTA_OIF, 0);
    if (ifindex != 0 || attributes.has(RTA_GATEWAY) || attributes.has(RTA_VIA)) {
        route.paths.push_back(decodePath(attributes, ifindex, header.rtm_flags));
    }
    return route;
}

template <class T>
std::optional<RtMessage> wrap(const NetlinkFrame& frame, bool removed, std::optional<T> body) {
    if (!body) { return std::nullopt; }
    return RtMessage{removed,
                     (frame.flags & NLM_F_REPLACE) != 0,
                     (frame.flags & NLM_F_APPEND) != 0,
                     std::move(*body)};
}

}  // namespace

std::optional<NetlinkFrame> NetlinkReader::next() {
    if (rest_.empty() || broken_) { return std::nullopt; }
    const auto header = readValue<nlmsghdr>(rest_);
    if (!header || header->nlmsg_len < sizeof(nlmsghdr) || header->nlmsg_len > rest_.size()) {
        broken_ = true;
        return std::nullopt;
    }
    const NetlinkFrame frame{header->nlmsg_type,
                             header->nlmsg_flags,
                             header->nlmsg_seq,
                             header->nlmsg_pid,
                             rest_.subspan(sizeof(nlmsghdr), header->nlmsg_len - sizeof(nlmsghdr))};
    const std::size_t padded = (std::size_t{header->nlmsg_len} + 3) & ~std::size_t{3};
    rest_ = rest_.subspan(std::min(padded, rest_.size()));
    return frame;
}

std::optional<RtMessage> decode(const NetlinkFrame& frame) {
    switch (frame.type) {
        case RTM_NEWLINK:
        case RTM_DELLINK:
            if (isBridgePort(frame.payload)) {  // speaks of the port, not of the link
                return wrap(frame, frame.type == RTM_DELLINK, decodeBridgePort(frame.payload));
            }
            return wrap(frame,
                        frame.type == RTM_DELLINK,
                        decodeLink(frame.payload, frame.type == RTM_DELLINK));
        case kNewTunnel:
        case kDelTunnel:
            return wrap(frame, frame.type == kDelTunnel, decodeVniFilter(frame.payload));
        case RTM_NEWNEIGH:
        case RTM_DELNEIGH:
            return wrap(frame, frame.type == RTM_DELNEIGH, decodeNeighbour(frame.payload));
        case RTM_NEWNEXTHOP:
        case RTM_DELNEXTHOP:
            return wrap(frame,
                        frame.type == RTM_DELNEXTHOP,
                        decodeNexthop(frame.payload, frame.type == RTM_DELNEXTHOP));
        case RTM_NEWROUTE:
        case RTM_DELROUTE:
            return wrap(frame, frame.type == RTM_DELROUTE, decodeRoute(frame.payload));
        default:
            return std::nullopt;
    }
}

}  // namespace Pel::Forwarder

#include "model/View/OpenConfigEncapHeaders.h"

#include <array>
#include <optional>
#include <string_view>

#include "model/View/OpenConfigKeys.h"
#include "model/View/OpenConfigValues.h"

namespace Pel::OcApi {

using Gale::NotificationWriter;
using Gale::PathTemplate;
using OpenConfigKeys::Decimal;

namespace {

/// Positions in a stack are 8 bits wide.
constexpr std::size_t kMaxLabels = 256;
constexpr std::uint32_t kMaxVni = 0xFF'FFFF;

/// Null for one that is not known; 0 is none, and more than 24 bits do not fit into the header.
std::optional<std::uint64_t> shownVni(const VxlanState& state) {
    const std::uint32_t vni = state.vniLabel.value_or(0);
    return vni != 0 && vni <= kMaxVni ? std::optional<std::uint64_t>{vni} : std::nullopt;
}

bool isUdp(EncapHeaderType type) {
    return type == EncapHeaderType::udpv4 || type == EncapHeaderType::udpv6;
}

/// Only of the family that the container is for.
void writeAddress(NotificationWriter& to,
                  const PathTemplate& path,
                  PathTemplate::Keys keys,
                  const Nexo::IpGenAddr& address,
                  Nexo::AddressFamily family) {
    if (address.family() != family) { return; }
    OpenConfigValues::writeAddress(to, path, keys, address);
}

}  // namespace

OpenConfigEncapHeaders::Udp::Udp(const std::string& container)
    : source{"encap-headers/encap-header[index]/" + container + "/state/src-ip"},
      destination{"encap-headers/encap-header[index]/" + container + "/state/dst-ip"},
      destinationPort{"encap-headers/encap-header[index]/" + container + "/state/dst-udp-port"},
      ttl{"encap-headers/encap-header[index]/" + container + "/state/ip-ttl"} {}

bool OpenConfigEncapHeaders::udpOverMpls(const EncapHeaderContainer& headers,
                                         const EncapHeader& header) {
    if (!isUdp(header.type) || header.index == 0) { return false; }
    const EncapHeader* const inner =
        headers.encapHeader(static_cast<std::uint8_t>(header.index - 1));
    return inner != nullptr && inner->type == EncapHeaderType::mpls;
}

void OpenConfigEncapHeaders::write(NotificationWriter& to,
                                   const EncapHeaderContainer& headers,
                                   std::uint16_t mplsPort) const {
    const VxlanState* vxlan = nullptr;
    for (const EncapHeader& header : headers) {
        writeHeader(to, header, udpOverMpls(headers, header) ? mplsPort : std::uint16_t{0});
        if (header.type == EncapHeaderType::vxlan && vxlan == nullptr) {
            vxlan = header.stateAs<VxlanState>();
        }
    }
    if (vxlan != nullptr) { writeOfNextHop(to, *vxlan); }
}

void OpenConfigEncapHeaders::writeHeader(NotificationWriter& to,
                                         const EncapHeader& header,
                                         std::uint16_t port) const {
    const Decimal index{header.index};
    const std::array<std::string_view, 1> keys{index};
    to.leaf(index_, keys, std::uint64_t{header.index});
    to.leaf(stateIndex_, keys, std::uint64_t{header.index});
    const std::string_view type = OpenConfigValues::typeName(header.type);
    if (!type.empty()) { to.leaf(type_, keys, type); }
    if (header.type == EncapHeaderType::mpls) {
        if (const auto* const state = header.stateAs<MplsState>()) {
            writeMpls(to, header, *state);
        }
    } else if (isUdp(header.type)) {
        const auto* const state = header.stateAs<UdpState>();
        if (state != nullptr) { writeUdp(to, header, *state, port); }
    } else if (header.type == EncapHeaderType::vxlan) {
        const auto* const state = header.stateAs<VxlanState>();
        if (state != nullptr) { writeVxlan(to, header, *state); }
    }
}

void OpenConfigEncapHeaders::writeUdp(NotificationWriter& to,
                                      const EncapHeader& header,
                                      const UdpState& state,
                                      std::uint16_t port) const {
    const Decimal index{header.index};
    const std::array<std::string_view, 1> keys{index};
    const bool v4 = header.type == EncapHeaderType::udpv4;
    const Udp& paths = v4 ? udpV4_ : udpV6_;
    const auto family = v4 ? Nexo::AddressFamily::ipv4 : Nexo::AddressFamily::ipv6;
    writeAddress(to, paths.source, keys, state.srcIp, family);
    writeAddress(to, paths.destination, keys, state.dstIp, family);
    if (port != 0) { to.leaf(paths.destinationPort, keys, std::uint64_t{port}); }
    const std::uint64_t ttl = state.ipTtl.value_or(0);
    if (ttl != 0) { to.leaf(paths.ttl, keys, ttl); }
}

/// Older clients read the leaf-list, which cannot hold every stack.
void OpenConfigEncapHeaders::writeMpls(NotificationWriter& to,
                                       const EncapHeader& header,
                                       const MplsState& state) const {
    const Decimal index{header.index};
    const auto& stack = state.mplsLabelStack;
    OpenConfigValues::writeLabelList(to, labelList_, std::array<std::string_view, 1>{index}, stack);
    if (stack.size() > kMaxLabels) { return; }
    std::uint64_t position = 0;
    for (auto label = stack.rbegin(); label != stack.rend(); ++label, ++position) {
        const Decimal id{position};
        const std::array<std::string_view, 2> keys{index, id};
        to.leaf(labelId_, keys, position);
        to.leaf(labelStateId_, keys, position);
        const auto element = OpenConfigValues::labelElement(*label);
        if (!element) { continue; }
        if (element->name.empty()) {
            to.leaf(label_, keys, element->number);
        } else {
            to.leaf(label_, keys, element->name);
        }
    }
}

void OpenConfigEncapHeaders::writeVxlan(NotificationWriter& to,
                                        const EncapHeader& header,
                                        const VxlanState& state) const {
    const Decimal index{header.index};
    const std::array<std::string_view, 1> keys{index};
    if (const auto vni = shownVni(state)) { to.leaf(headerVni_, keys, *vni); }
    OpenConfigValues::writeAddress(to, headerTunnelSource_, keys, state.tunnelSrcIpAddress);
}

/// What stands in the header has a home in the next hop, too.
void OpenConfigEncapHeaders::writeOfNextHop(NotificationWriter& to, const VxlanState& state) const {
    to.leaf(encapsulateHeader_, {}, OpenConfigValues::typeName(EncapHeaderType::vxlan));
    if (const auto vni = shownVni(state)) { to.leaf(vniLabel_, {}, *vni); }
    OpenConfigValues::writeAddress(to, tunnelSource_, {}, state.tunnelSrcIpAddress);
}

}  // namespace Pel::OcApi

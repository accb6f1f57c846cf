#include "PelOpenConfig/PelNexthopEncapHeaders.h"

#include <utility>

#include "PelOpenConfig/PelNexthopMapperSm.h"
#include "PelOpenConfig/PelNexthopMapperTrace.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Vxlan/VtiStatus.h"

namespace Pel::Oc {
namespace {

using OcApi::EncapHeader;
using OcApi::EncapHeaderContainer;
using OcApi::EncapHeaderType;
using Tunnel::TunnelTable::EncapType;

/// No record says what an address of the other family in a header would mean: it is left out.
Nexo::IpGenAddr ofFamily(Nexo::AddressFamily family, const Nexo::IpGenAddr& address) {
    return address.family() == family ? address : Nexo::IpGenAddr{};
}

OcApi::MplsState mplsState(const std::vector<Nexo::MplsLabel>& labels) {
    OcApi::MplsState to;
    to.mplsLabelStack.reserve(labels.size());
    for (const Nexo::MplsLabel label : labels) { to.mplsLabelStackPush(label); }
    PEL_TRACE_OF(7, "backlogProcessElem", "Added {} mpls labels", labels.size());
    return to;
}

OcApi::UdpState udpState(Nexo::AddressFamily family, const Stash::GueEncap& gue) {
    OcApi::UdpState to{ofFamily(family, gue.source), ofFamily(family, gue.destination), {}};
    if (toggleOCNHGContentStreamingTtlTosEnabled()) { to.ipTtl = gue.ipTtl; }
    return to;
}

void addUdpHeader(EncapHeaderContainer& to, std::uint8_t index, const Stash::GueEncap& gue) {
    switch (static_cast<Nexo::AddressFamily>(gue.addressFamily)) {
        case Nexo::AddressFamily::ipv4: {
            const auto state = udpState(Nexo::AddressFamily::ipv4, gue);
            PEL_TRACE_OF(7,
                         "backlogProcessElem",
                         "Added the following UDPv4 attributes: srcIp={}, dstIp={}, ipTtl={}",
                         state.srcIp,
                         state.dstIp,
                         state.ipTtl.value_or(0));
            to.encapHeaderIs({index, EncapHeaderType::udpv4, state});
            return;
        }
        case Nexo::AddressFamily::ipv6: {
            const auto state = udpState(Nexo::AddressFamily::ipv6, gue);
            PEL_TRACE_OF(7,
                         "backlogProcessElem",
                         "Added the following UDPv6 attributes: srcIp={}, dstIp={}, ipTtl={}",
                         state.srcIp,
                         state.dstIp,
                         state.ipTtl.value_or(0));
            to.encapHeaderIs({index, EncapHeaderType::udpv6, state});
            return;
        }
        case Nexo::AddressFamily::none:
            break;
    }
    // A header without type keeps the position visible.
    PEL_TRACE_OF(5, "backlogProcessElem", "Unsupported AF {}", gue.addressFamily);
    to.encapHeaderIs({index, EncapHeaderType::unset, {}});
}

void addHeader(EncapHeaderContainer& to, std::uint8_t index, const Stash::FlattenFecNextHop& from) {
    const EncapType type = from.encapOrder.encap(index);
    PEL_TRACE_OF(
        7, "backlogProcessElem", "Encap type = {}", Tunnel::TunnelTable::stringValue(type));
    switch (type) {
        case EncapType::mpls:
            to.encapHeaderIs({index, EncapHeaderType::mpls, mplsState(from.mplsEncapLabels)});
            return;
        case EncapType::udp:
            if (!from.gue) {
                PEL_TRACE_OF(
                    5, "backlogProcessElem", "ERROR: No gue encap info provided, skipping");
                return;
            }
            addUdpHeader(to, index, *from.gue);
            return;
        case EncapType::unset:
            break;
    }
    PEL_TRACE_OF(5,
                 "backlogProcessElem",
                 "Encountered unsupported encap type {}",
                 Tunnel::TunnelTable::stringValue(type));
}

}  // namespace

EncapHeaderContainer encapHeadersOf(const Stash::FlattenFecNextHop& from) {
    PEL_TRACE_OF(9, "backlogProcessElem", "Processing encapOrder stack");
    EncapHeaderContainer to;
    const std::uint8_t count = from.encapOrder.encaps();
    if (count == 0) {
        PEL_TRACE_OF(9, "backlogProcessElem", "encapOrder is empty");
        return to;
    }
    PEL_TRACE_OF(7, "backlogProcessElem", "{} encap headers to process", count);
    to.reserve(count);
    for (std::uint8_t i = 0; i < count; ++i) { addHeader(to, i, from); }
    return to;
}

Nexo::ExtendedVlanId boundedVlan(std::uint32_t published) {
    // The message's function is the bound check's own, which has no name.
    return [published] {
        if (published <= Nexo::ExtendedVlanId::kMax) { return Nexo::ExtendedVlanId{published}; }
        TRACE5("Extended VLAN ID is out of bound, setting to default.");
        return Nexo::ExtendedVlanId{};
    }();
}

EncapHeaderContainer vxlanHeader(const Vxlan::VtiStatus* vti, Nexo::ExtendedVlanId vlan) {
    OcApi::VxlanState state;
    if (vti != nullptr) {
        const Nexo::IpGenAddr& local = vti->vtepAddrV6.isZero() ? vti->vtepAddr : vti->vtepAddrV6;
        if (!local.isZero()) { state.tunnelSrcIpAddress = local; }
        const auto vni = vti->vlanVniMap.find(vlan.value());
        if (vni != vti->vlanVniMap.end() && vni->second != 0) { state.vniLabel = vni->second; }
    }
    EncapHeaderContainer to;
    to.encapHeaderIs({0, EncapHeaderType::vxlan, state});
    return to;
}

}  // namespace Pel::Oc

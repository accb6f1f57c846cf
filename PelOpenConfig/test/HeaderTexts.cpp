#include "PelOpenConfig/test/HeaderTexts.h"

#include <array>

namespace Pel::Oc {
namespace {

std::string typeText(OcApi::EncapHeaderType type) {
    switch (type) {
        case OcApi::EncapHeaderType::unset:
            return "unset";
        case OcApi::EncapHeaderType::mpls:
            return "mpls";
        case OcApi::EncapHeaderType::vxlan:
            return "vxlan";
        case OcApi::EncapHeaderType::udpv4:
            return "udpv4";
        case OcApi::EncapHeaderType::udpv6:
            return "udpv6";
        default:
            return "type " + std::to_string(static_cast<int>(type));
    }
}

std::string addressText(const Nexo::IpGenAddr& address) {
    return address.family() == Nexo::AddressFamily::none ? "-" : address.stringValue();
}

template <class Number>
std::string numberText(const std::optional<Number>& number) {
    return number ? std::to_string(*number) : "-";
}

std::string stateText(const OcApi::EncapHeader& header) {
    if (const auto* const mpls = header.stateAs<OcApi::MplsState>()) {
        std::string text;
        for (const auto label : mpls->mplsLabelStack) {
            text += (text.empty() ? "" : ", ") + std::to_string(label.value());
        }
        return " [" + text + "]";
    }
    if (const auto* const udp = header.stateAs<OcApi::UdpState>()) {
        return " " + addressText(udp->srcIp) + " " + addressText(udp->dstIp) + " " +
               numberText(udp->ipTtl);
    }
    if (const auto* const vxlan = header.stateAs<OcApi::VxlanState>()) {
        return " " + addressText(vxlan->tunnelSrcIpAddress) + " " + numberText(vxlan->vniLabel);
    }
    return "";
}

}  // namespace

std::string headerTexts(const OcApi::EncapHeaderContainer& headers) {
    std::string text;
    for (const OcApi::EncapHeader& header : headers) {
        if (!text.empty()) { text += "; "; }
        text += std::to_string(header.index) + " " + typeText(header.type) + stateText(header);
    }
    return text;
}

Vel::Ref<Stash::FlattenFecNextHop> encapsulated(std::initializer_list<int> order) {
    const auto nextHop = Vel::make<Stash::FlattenFecNextHop>();
    nextHop->interface = Nexo::IntfId{"eth1"};
    nextHop->address = *Nexo::IpGenAddr::parse("10.0.0.1");
    for (const int type : order) {
        nextHop->encapOrder.push(static_cast<Tunnel::TunnelTable::EncapType>(type));
    }
    nextHop->mplsEncapLabels = {Nexo::MplsLabel{17}, Nexo::MplsLabel{16}};
    nextHop->gue = Stash::GueEncap{
        1, *Nexo::IpGenAddr::parse("192.0.2.1"), *Nexo::IpGenAddr::parse("192.0.2.2"), 64};
    return nextHop;
}

Vel::Ref<Stash::FlattenFecNextHop> vxlanNextHop(const std::string& vti, std::uint32_t vlan) {
    const auto nextHop = encapsulated({});
    nextHop->vxlan = Stash::VxlanEncap{Nexo::IntfId{vti}, vlan};
    return nextHop;
}

}  // namespace Pel::Oc

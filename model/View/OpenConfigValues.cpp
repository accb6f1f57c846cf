#include "model/View/OpenConfigValues.h"

namespace Pel::OcApi::OpenConfigValues {

namespace {

std::string_view labelName(std::uint32_t label) {
    switch (label) {
        case 0:
            return "IPV4_EXPLICIT_NULL";
        case 1:
            return "ROUTER_ALERT";
        case 2:
            return "IPV6_EXPLICIT_NULL";
        case 3:
            return "IMPLICIT_NULL";
        case 7:
            return "ENTROPY_LABEL_INDICATOR";
        default:
            return {};
    }
}

constexpr std::uint32_t kFirstUnreserved = 16;

}  // namespace

std::string_view typeName(EncapHeaderType type) {
    switch (type) {
        case EncapHeaderType::unset:
            return {};
        case EncapHeaderType::gre:
            return "GRE";
        case EncapHeaderType::mpls:
            return "MPLS";
        case EncapHeaderType::ipv4:
            return "IPV4";
        case EncapHeaderType::vxlan:
            return "VXLAN";
        case EncapHeaderType::udpv4:
            return "UDPV4";
        case EncapHeaderType::udpv6:
            return "UDPV6";
        case EncapHeaderType::ipv6:
            return "IPV6";
    }
    return {};
}

std::optional<Gale::NotificationWriter::Element> labelElement(Nexo::MplsLabel label) {
    const std::string_view name = labelName(label.value());
    if (name.empty() && label.value() < kFirstUnreserved) { return std::nullopt; }
    return Gale::NotificationWriter::Element{label.value(), name};
}

void writeAddress(Gale::NotificationWriter& to,
                  const Gale::PathTemplate& path,
                  Keys keys,
                  const Nexo::IpGenAddr& value) {
    if (!value.isZero()) { to.leaf(path, keys, value.stringValue()); }
}

}  // namespace Pel::OcApi::OpenConfigValues

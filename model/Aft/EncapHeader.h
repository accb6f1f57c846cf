#pragma once

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

#include "model/Net/IpGenAddr.h"
#include "model/Net/MplsLabel.h"
#include "platform/Vel/Fields.h"

namespace Pel::OcApi {

enum class EncapHeaderType : std::uint8_t {
    unset = 0,
    gre = 1,
    mpls = 2,
    ipv4 = 3,
    vxlan = 4,
    udpv4 = 5,
    udpv6 = 6,
    ipv6 = 7,
};

struct MplsState {
    std::vector<Nexo::MplsLabel> mplsLabelStack;  ///< top first
    void mplsLabelStackPush(Nexo::MplsLabel label) { mplsLabelStack.push_back(label); }
    static constexpr auto fields() {
        return Vel::fields(Vel::field("mplsLabelStack", &MplsState::mplsLabelStack));
    }
    friend bool operator==(const MplsState& a, const MplsState& b) { return Vel::isEq(a, b); }
};

/// Of both UDP types.
struct UdpState {
    Nexo::IpGenAddr srcIp;
    Nexo::IpGenAddr dstIp;
    std::optional<std::uint8_t> ipTtl;  ///< 0: copied from the inner packet; absent: not shown
    static constexpr auto fields() {
        return Vel::fields(Vel::field("srcIp", &UdpState::srcIp),
                           Vel::field("dstIp", &UdpState::dstIp),
                           Vel::field("ipTtl", &UdpState::ipTtl));
    }
    friend bool operator==(const UdpState& a, const UdpState& b) { return Vel::isEq(a, b); }
};

struct VxlanState {
    Nexo::IpGenAddr tunnelSrcIpAddress;     ///< local VTEP
    std::optional<std::uint32_t> vniLabel;  ///< absent when it is not known
    static constexpr auto fields() {
        return Vel::fields(Vel::field("tunnelSrcIpAddress", &VxlanState::tunnelSrcIpAddress),
                           Vel::field("vniLabel", &VxlanState::vniLabel));
    }
    friend bool operator==(const VxlanState& a, const VxlanState& b) { return Vel::isEq(a, b); }
};

/// One encapsulation header. The state is that of its type; none for a header without a type.
struct EncapHeader {
    using State = std::variant<std::monostate, MplsState, UdpState, VxlanState>;
    std::uint8_t index = 0;  ///< position in the encapsulation order, 0 the innermost
    EncapHeaderType type = EncapHeaderType::unset;
    State state;

    /// The state when it is of this type, else null.
    template <class T>
    const T* stateAs() const {
        return std::get_if<T>(&state);
    }
    static constexpr auto fields() {
        return Vel::fields(Vel::field("index", &EncapHeader::index),
                           Vel::field("type", &EncapHeader::type),
                           Vel::field("state", &EncapHeader::state));
    }
    friend bool operator==(const EncapHeader& a, const EncapHeader& b) { return Vel::isEq(a, b); }
};

}  // namespace Pel::OcApi

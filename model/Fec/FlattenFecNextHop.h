#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Fec/EncapTypeStack.h"
#include "model/Net/EthAddr.h"
#include "model/Net/IntfId.h"
#include "model/Net/IpGenAddr.h"
#include "model/Net/MplsLabelStack.h"
#include "model/Vrf/VrfId.h"
#include "platform/Stash/Manager.h"
#include "platform/Vel/Fields.h"
#include "platform/Vel/Ref.h"

namespace Pel::Stash {

/// Outer header of a UDP (GUE) tunnel.
struct GueEncap {
    std::uint8_t addressFamily = 0;  ///< 1 IPv4, 2 IPv6; others are carried as they are
    Nexo::IpGenAddr source;
    Nexo::IpGenAddr destination;
    std::uint8_t ipTtl = 0;  ///< 0: copied from the inner packet

    static constexpr auto fields() {
        return Vel::fields(Vel::field("addressFamily", &GueEncap::addressFamily),
                           Vel::field("source", &GueEncap::source),
                           Vel::field("destination", &GueEncap::destination),
                           Vel::field("ipTtl", &GueEncap::ipTtl));
    }
    friend bool operator==(const GueEncap& a, const GueEncap& b) { return Vel::isEq(a, b); }
};

/// VXLAN interface and VLAN of a next hop; the remote VTEP is the next hop's address.
struct VxlanEncap {
    Nexo::IntfId vti;
    std::uint32_t vlan = 0;  ///< as published; the reader checks the bound

    static constexpr auto fields() {
        return Vel::fields(Vel::field("vti", &VxlanEncap::vti),
                           Vel::field("vlan", &VxlanEncap::vlan));
    }
    friend bool operator==(const VxlanEncap& a, const VxlanEncap& b) { return Vel::isEq(a, b); }
};

/// A next hop as the stash holds it.
struct FlattenFecNextHop final : public Vel::RefCounted {
    Nexo::IntfId interface;  ///< egress
    Nexo::IpGenAddr address;
    Nexo::EthAddr mac;
    Nexo::MplsLabelStack labels;  ///< pushed by the next hop itself
    EncapTypeStack encapOrder;
    std::vector<Nexo::MplsLabel> mplsEncapLabels;  ///< of the MPLS encapsulation, top first
    std::optional<GueEncap> gue;
    std::optional<VxlanEncap> vxlan;
    Vrf::VrfId decapVrfId;         ///< where a decapsulated packet is looked up
    std::uint8_t decapHeader = 0;  ///< header that is removed, as an EncapHeaderType
    Vrf::VrfId fallbackVrfId;
    bool popTopLabel = false;

    static constexpr auto fields() {
        return Vel::fields(Vel::field("interface", &FlattenFecNextHop::interface),
                           Vel::field("address", &FlattenFecNextHop::address),
                           Vel::field("mac", &FlattenFecNextHop::mac),
                           Vel::field("labels", &FlattenFecNextHop::labels),
                           Vel::field("encapOrder", &FlattenFecNextHop::encapOrder),
                           Vel::field("mplsEncapLabels", &FlattenFecNextHop::mplsEncapLabels),
                           Vel::field("gue", &FlattenFecNextHop::gue),
                           Vel::field("vxlan", &FlattenFecNextHop::vxlan),
                           Vel::field("decapVrfId", &FlattenFecNextHop::decapVrfId),
                           Vel::field("decapHeader", &FlattenFecNextHop::decapHeader),
                           Vel::field("fallbackVrfId", &FlattenFecNextHop::fallbackVrfId),
                           Vel::field("popTopLabel", &FlattenFecNextHop::popTopLabel));
    }
};

/// Bytes with a label of more than 20 bits, more than 255 labels, more encapsulations than
/// EncapTypeStack holds, or a name of more than 255 bytes do not verify.
template <>
struct RecordCodec<FlattenFecNextHop> {
    static Vel::Ref<const FlattenFecNextHop> decode(std::string_view bytes);
    static std::string encode(const FlattenFecNextHop& record);
};

}  // namespace Pel::Stash

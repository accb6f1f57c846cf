#pragma once

#include <cstdint>
#include <string>

#include "model/Aft/EncapHeaderContainer.h"
#include "platform/Gale/NotificationWriter.h"
#include "platform/Gale/PathTemplate.h"

namespace Pel::OcApi {

/// The encapsulation headers of a next hop as leaves of the OpenConfig view. Immutable.
///
/// What the schema has no value for is left out, and nothing is said in its place: a header without a
/// type is an entry with its index alone, a label of 4 to 6 or 8 to 15 an entry of the label list with
/// its position alone, so that what stands around it can be read.
class OpenConfigEncapHeaders final {
public:
    /// `mplsPort`: UDP destination port of tunnels that carry MPLS; 0: not known.
    void write(Gale::NotificationWriter& to,
               const EncapHeaderContainer& headers,
               std::uint16_t mplsPort) const;

    /// A UDP header directly around an MPLS header: the one kind whose destination port is known. The
    /// payload of a UDP header that is the innermost may be of either IP family.
    static bool udpOverMpls(const EncapHeaderContainer& headers, const EncapHeader& header);

private:
    struct Udp {
        explicit Udp(const std::string& container);
        Gale::PathTemplate source;
        Gale::PathTemplate destination;
        Gale::PathTemplate destinationPort;
        Gale::PathTemplate ttl;
    };
    void writeHeader(Gale::NotificationWriter& to,
                     const EncapHeader& header,
                     std::uint16_t port) const;
    void writeMpls(Gale::NotificationWriter& to,
                   const EncapHeader& header,
                   const MplsState& state) const;
    void writeUdp(Gale::NotificationWriter& to,
                  const EncapHeader& header,
                  const UdpState& state,
                  std::uint16_t port) const;
    void writeVxlan(Gale::NotificationWriter& to,
                    const EncapHeader& header,
                    const VxlanState& state) const;
    void writeOfNextHop(Gale::NotificationWriter& to, const VxlanState& state) const;

    // Of the next hop itself, for clients that do not know the headers.
    const Gale::PathTemplate encapsulateHeader_{"state/encapsulate-header"};
    const Gale::PathTemplate vniLabel_{"state/vni-label"};
    const Gale::PathTemplate tunnelSource_{"state/tunnel-src-ip-address"};

    const Gale::PathTemplate index_{"encap-headers/encap-header[index]/index"};
    const Gale::PathTemplate stateIndex_{"encap-headers/encap-header[index]/state/index"};
    const Gale::PathTemplate type_{"encap-headers/encap-header[index]/state/type"};
    const Gale::PathTemplate labelList_{
        "encap-headers/encap-header[index]/mpls/state/mpls-label-stack"};
    const Gale::PathTemplate labelId_{
        "encap-headers/encap-header[index]/mpls/encap-mpls-label-stacks/encap-mpls-label-stack[id]/"
        "id"};
    const Gale::PathTemplate labelStateId_{
        "encap-headers/encap-header[index]/mpls/encap-mpls-label-stacks/encap-mpls-label-stack[id]/"
        "state/id"};
    const Gale::PathTemplate label_{
        "encap-headers/encap-header[index]/mpls/encap-mpls-label-stacks/encap-mpls-label-stack[id]/"
        "state/label"};
    const Udp udpV4_{"udp-v4"};
    const Udp udpV6_{"udp-v6"};
    const Gale::PathTemplate headerVni_{"encap-headers/encap-header[index]/vxlan/state/vni-label"};
    const Gale::PathTemplate headerTunnelSource_{
        "encap-headers/encap-header[index]/vxlan/state/tunnel-src-ip-address"};
};

}  // namespace Pel::OcApi

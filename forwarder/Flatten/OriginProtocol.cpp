#include "forwarder/Flatten/OriginProtocol.h"

#include <linux/rtnetlink.h>

namespace Pel::Forwarder {

namespace {
constexpr std::uint8_t kZebraStatic = 196;  // newer than the distribution's headers
}  // namespace

OriginProtocol originFromKernel(std::uint8_t protocol, bool connected, bool v6) {
    switch (protocol) {
        case RTPROT_KERNEL:
        case RTPROT_RA:  // prefixes and routers learnt by router advertisement: no identity of
                         // their own
            return connected ? OriginProtocol::directlyConnected : OriginProtocol::local;
        case RTPROT_BOOT:  // `ip route add` by hand or by a start-up script
        case RTPROT_STATIC:
        case RTPROT_DHCP:
        case kZebraStatic:
            return OriginProtocol::staticRoute;
        case RTPROT_ZEBRA:  // zebra's own routes; the connected ones are the only kind it can be
                            // sure of
            return connected ? OriginProtocol::directlyConnected : OriginProtocol::unset;
        case RTPROT_BGP:
            return OriginProtocol::bgp;
        case RTPROT_ISIS:
            return OriginProtocol::isis;
        case RTPROT_OSPF:
            return v6 ? OriginProtocol::ospf3 : OriginProtocol::ospf;
        default:
            return OriginProtocol::unset;
    }
}

}  // namespace Pel::Forwarder

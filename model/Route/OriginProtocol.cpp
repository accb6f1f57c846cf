#include "model/Route/OriginProtocol.h"

namespace Pel {

std::string_view identityName(OriginProtocol protocol) {
    switch (protocol) {
        case OriginProtocol::unset:
            return {};
        case OriginProtocol::directlyConnected:
            return "DIRECTLY_CONNECTED";
        case OriginProtocol::local:
            return "LOCAL";
        case OriginProtocol::staticRoute:
            return "STATIC";
        case OriginProtocol::bgp:
            return "BGP";
        case OriginProtocol::isis:
            return "ISIS";
        case OriginProtocol::ospf:
            return "OSPF";
        case OriginProtocol::ospf3:
            return "OSPF3";
    }
    return {};
}

}  // namespace Pel

#include "model/Tunnel/PayloadType.h"

namespace Tunnel {

std::string stringValue(PayloadType type) {
    switch (type) {
        case PayloadType::none:
            return "none";
        case PayloadType::mpls:
            return "mpls";
        case PayloadType::gre:
            return "gre";
        case PayloadType::ipv4:
            return "ipv4";
        case PayloadType::ipv6:
            return "ipv6";
    }
    return std::to_string(static_cast<unsigned>(type));
}

}  // namespace Tunnel

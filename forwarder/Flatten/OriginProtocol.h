#pragma once

#include <cstdint>

#include "model/Route/OriginProtocol.h"

namespace Pel::Forwarder {

/// From the kernel's protocol number. `connected`: the route has paths and none of them has a
/// gateway. `v6` tells the two OSPF versions apart. Unset when no identity fits (RIP, EIGRP, Babel
/// and unknown numbers): a wrong origin would be worse than none.
OriginProtocol originFromKernel(std::uint8_t protocol, bool connected, bool v6);

}  // namespace Pel::Forwarder

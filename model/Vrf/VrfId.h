#pragma once

#include "model/Net/Id.h"

namespace Vrf {

/// The platform's number of a VRF; 0 is none.
using VrfId = Nexo::Id<struct VrfIdTag, std::uint32_t>;

}  // namespace Vrf

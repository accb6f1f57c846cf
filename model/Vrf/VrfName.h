#pragma once

#include "platform/Vel/BoundedString.h"

namespace Vrf {

/// At most 100 bytes; the default VRF is "default".
using VrfName = Vel::BoundedString<100>;

inline constexpr const char* kDefaultVrfName = "default";

}  // namespace Vrf

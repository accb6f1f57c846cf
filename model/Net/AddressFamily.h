#pragma once

#include <cstdint>

namespace Nexo {

enum class AddressFamily : std::uint8_t { none = 0, ipv4 = 1, ipv6 = 2 };
/// One of the two.
using V4V6 = AddressFamily;

}  // namespace Nexo

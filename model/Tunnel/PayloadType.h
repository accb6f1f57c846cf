#pragma once

#include <cstdint>
#include <string>

namespace Tunnel {

/// What a UDP tunnel carries. Other values occur and are carried as they are.
enum class PayloadType : std::uint8_t { none = 0, mpls = 1, gre = 2, ipv4 = 3, ipv6 = 4 };

/// "none", "mpls", "gre", "ipv4", "ipv6"; a type without a name shows its number.
std::string stringValue(PayloadType type);

}  // namespace Tunnel

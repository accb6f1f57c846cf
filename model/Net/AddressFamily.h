#pragma once

#include <cstdint>

namespace Nexo {

enum class AddressFamily : std::uint8_t { none = 0, ipv4 = 1, ipv6 = 2 };

}  // namespace Nexo

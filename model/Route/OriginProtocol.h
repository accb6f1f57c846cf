#pragma once

#include <cstdint>
#include <string_view>

namespace Pel {

/// Who put a route into the table, by the identities of OpenConfig's policy types.
enum class OriginProtocol : std::uint8_t {
    unset = 0,  ///< not known, or without an identity there
    directlyConnected = 1,
    local = 2,
    staticRoute = 3,
    bgp = 4,
    isis = 5,
    ospf = 6,
    ospf3 = 7,
};

/// "BGP", "DIRECTLY_CONNECTED"; empty for unset and for numbers without a name.
std::string_view identityName(OriginProtocol protocol);

}  // namespace Pel

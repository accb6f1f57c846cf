#pragma once

#include <cstdint>

#include "model/Net/Id.h"

namespace Pel {

/// Where the number of a FEC id comes from.
enum class FecKind : std::uint8_t {
    kernel = 0,     ///< id of a kernel or zebra object, so that the exported id is that very number
    memberSet = 1,  ///< allocated for a set of members
    ipInIpTunnel = 2,
    bottom = 3,
    scenario = 4,
};

/// Identity of a FEC: bits 63 to 56 the kind, bits 55 to 0 the number; 0 is none.
using FecId = Nexo::Id<struct FecIdTag>;

inline constexpr std::uint64_t kFecNumberMask = 0x00FF'FFFF'FFFF'FFFFU;

constexpr FecId makeFecId(FecKind kind, std::uint64_t number) {
    return FecId{static_cast<std::uint64_t>(kind) << 56U | (number & kFecNumberMask)};
}
constexpr FecKind fecKind(FecId id) {
    return static_cast<FecKind>(id.value() >> 56U);
}
constexpr std::uint64_t fecNumber(FecId id) {
    return id.value() & kFecNumberMask;
}

}  // namespace Pel

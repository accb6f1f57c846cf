#pragma once

#include <cstdint>

namespace Pel::Forwarder {

/// Identity of a FEC: bits 63..56 say where the number comes from, bits 55..0 are the number; 0 is
/// no FEC. The kinds follow the rule for the whole system, so that the id of a kernel object is the
/// kernel's own number.
using FecId = std::uint64_t;

enum class FecKind : std::uint8_t {
    Kernel = 0,
    MemberSet = 1,
    IpTunnel = 2,
    Bottom = 3,
    Scenario = 4
};

inline constexpr FecId kNoFec = 0;
inline constexpr std::uint64_t kFecNumberMask = 0x00FF'FFFF'FFFF'FFFFU;

constexpr FecId makeFecId(FecKind kind, std::uint64_t number) {
    return static_cast<std::uint64_t>(kind) << 56 | (number & kFecNumberMask);
}
constexpr FecKind fecKind(FecId id) {
    return static_cast<FecKind>(id >> 56);
}
constexpr std::uint64_t fecNumber(FecId id) {
    return id & kFecNumberMask;
}

}  // namespace Pel::Forwarder

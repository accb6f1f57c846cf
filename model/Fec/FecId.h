#pragma once

#include <cstdint>

#include "model/Net/Id.h"
#include "model/Tunnel/TunnelId.h"

namespace Pel {

/// Where the number of a FEC id comes from.
enum class FecKind : std::uint8_t {
    kernel = 0,     ///< id of a kernel or zebra object, so that the exported id is that very number
    memberSet = 1,  ///< allocated for a set of members
    ipInIpTunnel = 2,
    bottom = 3,
    scenario = 4,
};

struct FecIdTag;

}  // namespace Pel

/// Between the FECs of IP-in-IP tunnels and the identifiers under which their counters stand. An
/// identifier has room for the low 12 bits of a FEC's number. Neither direction ever raises.
template <>
struct Nexo::IdFunctions<Pel::FecIdTag> {
    /// 0 for a FEC that is no IP-in-IP tunnel.
    static constexpr Tunnel::TunnelTable::TunnelId fecIdToTunnelId(Id<Pel::FecIdTag> fecId);
    /// None for an identifier that is no IP-in-IP tunnel's.
    static constexpr Id<Pel::FecIdTag> tunnelIdToFecId(Tunnel::TunnelTable::TunnelId tunnelId);
    friend constexpr auto operator<=>(const IdFunctions&, const IdFunctions&) = default;
};

namespace Pel {

/// Identity of a FEC: bits 63 to 56 the kind, bits 55 to 0 the number; 0 is none.
using FecId = Nexo::Id<FecIdTag>;

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

constexpr Tunnel::TunnelTable::TunnelId Nexo::IdFunctions<Pel::FecIdTag>::fecIdToTunnelId(
    Pel::FecId fecId) {
    return Pel::fecKind(fecId) == Pel::FecKind::ipInIpTunnel
               ? Tunnel::TunnelTable::TunnelId::ofIpInIp(Pel::fecNumber(fecId))
               : Tunnel::TunnelTable::TunnelId{};
}

constexpr Pel::FecId Nexo::IdFunctions<Pel::FecIdTag>::tunnelIdToFecId(
    Tunnel::TunnelTable::TunnelId tunnelId) {
    return tunnelId.isIpInIp() ? Pel::makeFecId(Pel::FecKind::ipInIpTunnel, tunnelId.numberOfType())
                               : Pel::FecId{};
}

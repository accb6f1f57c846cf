#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model/Fec/FecId.h"
#include "model/Net/AddressFamily.h"
#include "model/Net/IpPrefix.h"
#include "model/Route/OriginProtocol.h"
#include "platform/Mesa/Table.h"
#include "platform/Vel/Fields.h"

namespace Mesa {

/// A programmed route: the FEC that its prefix resolves to.
struct FibRoute {
    Pel::FecId fecId;
    Pel::OriginProtocol originProtocol = Pel::OriginProtocol::unset;
    static constexpr auto fields() {
        return Vel::fields(Vel::field("fecId", &FibRoute::fecId),
                           Vel::field("originProtocol", &FibRoute::originProtocol));
    }
};

template <>
struct RecordCodec<FibRoute> {
    static std::optional<FibRoute> decode(std::string_view bytes);
    static std::string encode(const FibRoute& record);
};

namespace Fib {
/// Programmed IPv4 routes of one VRF, a shared-memory table at fibTableMountPath().
class RouteStatus final : public TypedTable<Nexo::IpPrefix, FibRoute> {
public:
    static constexpr const char* kType = "Mesa::Fib::RouteStatus";
    explicit RouteStatus(const std::string& path) : TypedTable{path, kType} {}
};
}  // namespace Fib

namespace Fib6 {
/// Programmed IPv6 routes of one VRF.
class RouteStatus final : public TypedTable<Nexo::IpPrefix, FibRoute> {
public:
    static constexpr const char* kType = "Mesa::Fib6::RouteStatus";
    explicit RouteStatus(const std::string& path) : TypedTable{path, kType} {}
};
}  // namespace Fib6

/// The directory of the tables of all VRFs but the default one: "routing/vrf/status" or
/// "routing6/vrf/status".
std::string fibTableDirPath(Nexo::AddressFamily family);

/// Path of a VRF's table of the kind "rib": "routing/status" for the default VRF,
/// "routing/vrf/status/<vrf>" for others; "routing6/..." for IPv6.
std::string fibTableMountPath(Nexo::AddressFamily family,
                              std::string_view vrfName,
                              std::string_view kind);

}  // namespace Mesa

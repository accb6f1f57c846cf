#include "model/Route/RouteStatus.h"

#include "model/Record/FlatBytes.h"
#include "model/Route/Route_generated.h"
#include "model/Vrf/VrfName.h"
#include "platform/Vel/Assert.h"

namespace Mesa {

std::optional<FibRoute> RecordCodec<FibRoute>::decode(std::string_view bytes) {
    const auto* const table = Pel::Record::verified<Pel::Wire::Route>(bytes);
    if (table == nullptr) { return std::nullopt; }
    const Pel::Wire::RouteData& route = *table->route();
    return FibRoute{Pel::FecId{route.fec_id()},
                    static_cast<Pel::OriginProtocol>(route.origin_protocol())};
}

std::string RecordCodec<FibRoute>::encode(const FibRoute& record) {
    return Pel::Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        const Pel::Wire::RouteData route{record.fecId.value(),
                                         static_cast<std::uint8_t>(record.originProtocol)};
        return Pel::Wire::CreateRoute(to, &route);
    });
}

namespace {
std::string fibRoot(Nexo::AddressFamily family) {
    return family == Nexo::AddressFamily::ipv6 ? "routing6/" : "routing/";
}
}  // namespace

std::string fibTableDirPath(Nexo::AddressFamily family) {
    return fibRoot(family) + "vrf/status";
}

std::string fibTableMountPath(Nexo::AddressFamily family,
                              std::string_view vrfName,
                              std::string_view kind) {
    VEL_ASSERT(kind == "rib");
    if (vrfName == Vrf::kDefaultVrfName) { return fibRoot(family) + "status"; }
    return fibTableDirPath(family).append("/").append(vrfName);
}

}  // namespace Mesa

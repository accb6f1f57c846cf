#include "model/View/RouteTables.h"

#include <utility>

#include "model/Vrf/VrfName.h"
#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("RouteTables");

namespace Pel::OcApi {
namespace {
const char* tableType(Nexo::AddressFamily family) {
    return family == Nexo::AddressFamily::ipv4 ? Mesa::Fib::RouteStatus::kType
                                               : Mesa::Fib6::RouteStatus::kType;
}
}  // namespace

RouteTables::RouteTables(Vel::Ref<Mesa::EntityManager> tables,
                         std::vector<std::string> prefixes,
                         Found found)
    : tables_{std::move(tables)}, prefixes_{std::move(prefixes)}, found_{std::move(found)} {}

void RouteTables::start() {
    for (const std::string& prefix : prefixes_) {
        for (const auto family : {Nexo::AddressFamily::ipv4, Nexo::AddressFamily::ipv6}) {
            startFamily(family, prefix);
        }
    }
}

void RouteTables::startFamily(Nexo::AddressFamily family, const std::string& prefix) {
    if (prefix == Mesa::fibTableMountPath(family, Vrf::kDefaultVrfName, "rib")) {
        tables_->tableIs(prefix, tableType(family));
        tell(family, Vrf::kDefaultVrfName, prefix);
    } else if (prefix == Mesa::fibTableDirPath(family)) {
        const auto& mounter =
            mounters_.emplace_back(Vel::make<Mesa::DirMounter>(tables_, prefix, tableType(family)));
        mounter->neverUnmountIs(true);
        onPath_.push_back(mounter->mountedPaths()->onPathAdded().subscribe(
            [this, family](const std::string& path) { handlePath(family, path); }));
        mounter->initialize();
    }
}

/// A directory holds no table of the default VRF: what bears its name there is none of ours.
void RouteTables::handlePath(Nexo::AddressFamily family, const std::string& path) {
    const std::string vrf = path.substr(path.rfind('/') + 1);
    if (vrf != Vrf::kDefaultVrfName) { tell(family, vrf, path); }
}

void RouteTables::tell(Nexo::AddressFamily family,
                       const std::string& vrf,
                       const std::string& path) {
    const auto table = tables_->entity<Table>(path);
    if (!table) {
        TRACE5("table {} is mounted as something else: not served", path);
        return;
    }
    found_(family, vrf, table);
}

}  // namespace Pel::OcApi

#include "model/View/RouteTables.h"

#include <algorithm>
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
    const auto& reader = tables_->reader();
    onTable_ = reader->onTable().subscribe([this](const std::string& path) { handleTable(path); });
    for (const std::string& prefix : prefixes_) {
        handleTable(prefix);
        for (const auto& table : reader->tables(prefix)) { handleTable(table.path); }
    }
}

bool RouteTables::served(const std::string& path) const {
    return std::any_of(prefixes_.begin(), prefixes_.end(), [&](const std::string& prefix) {
        return path == prefix || path.starts_with(prefix + "/");
    });
}

void RouteTables::handleTable(const std::string& path) {
    if (!served(path)) { return; }
    if (std::find(mounted_.begin(), mounted_.end(), path) != mounted_.end()) { return; }
    for (const auto family : {Nexo::AddressFamily::ipv4, Nexo::AddressFamily::ipv6}) {
        const std::string vrf = path.substr(path.rfind('/') + 1);
        for (const std::string& name : {std::string{Vrf::kDefaultVrfName}, vrf}) {
            if (path != Mesa::fibTableMountPath(family, name, "rib")) { continue; }
            mounted_.push_back(path);
            mount(family, name);
            return;
        }
    }
}

void RouteTables::mount(Nexo::AddressFamily family, const std::string& vrf) {
    const std::string path = Mesa::fibTableMountPath(family, vrf, "rib");
    Mesa::MountGroup group{tables_};
    group.mount(path, tableType(family));
    group.close();
    const auto table = tables_->entity<Table>(path);
    if (!table) {
        TRACE5("table {} is mounted as something else: not served", path);
        return;
    }
    found_(family, vrf, table);
}

}  // namespace Pel::OcApi

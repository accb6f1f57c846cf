#include "PelOpenConfig/PelVrfTables.h"

#include <utility>

#include "model/Vrf/VrfName.h"

namespace Pel::Oc {
namespace {

using Nexo::AddressFamily;

constexpr AddressFamily kFamilies[] = {AddressFamily::ipv4, AddressFamily::ipv6};

}  // namespace

VrfTables::VrfTables(Vel::Ref<Mesa::EntityManager> tables, Vel::Ref<Vrf::VrfIdMap::Status> vrfIdMap)
    : tables_{std::move(tables)}, vrfIdMap_{std::move(vrfIdMap)} {
    if (vrfIdMap_) {
        onVrf_ = vrfIdMap_->onKey().subscribe([this](const Vrf::VrfId& id) { handleVrf(id); });
        onVrfs_ = vrfIdMap_->onPresent().subscribe([this] { handleVrfs(); });
        handleVrfs();
    }
    const auto& reader = tables_->reader();
    onTable_ = reader->onTable().subscribe([this](const std::string& path) { handleTable(path); });
    for (const auto& table : reader->tables("routing")) { handleTable(table.path); }
}

Vel::Ref<VrfTables::Table> VrfTables::table(AddressFamily family, const std::string& vrf) const {
    return tables_->entity<Table>(Mesa::fibTableMountPath(family, vrf, "rib"));
}

std::optional<std::string> VrfTables::nextName(const std::optional<std::string>& after) const {
    const auto next = after ? vrfs_.upper_bound(*after) : vrfs_.begin();
    return next == vrfs_.end() ? std::nullopt : std::optional{next->first};
}

void VrfTables::handleVrfs() {
    for (const Vrf::VrfId id : vrfIdMap_->keys()) { handleVrf(id); }
}

void VrfTables::handleVrf(Vrf::VrfId id) {
    if (const auto named = names_.find(id); named != names_.end()) {
        const std::string name = std::move(named->second);
        names_.erase(named);
        vrfs_[name].ids.erase(id);
        forget(name);
    }
    const auto entry = vrfIdMap_->read(id);
    if (!entry) { return; }
    const std::string& name = names_[id] = entry->vrfName.stringValue();
    vrfs_[name].ids.insert(id);
}

void VrfTables::handleTable(const std::string& path) {
    const std::string last = path.substr(path.rfind('/') + 1);
    for (const AddressFamily family : kFamilies) {
        for (const std::string& name : {std::string{Vrf::kDefaultVrfName}, last}) {
            if (path != Mesa::fibTableMountPath(family, name, "rib")) { continue; }
            if (tables_->reader()->table(path)) {
                vrfs_[name].families.insert(family);
            } else {
                vrfs_[name].families.erase(family);
                forget(name);
            }
            return;
        }
    }
}

/// A VRF without id and table is none.
void VrfTables::forget(const std::string& name) {
    const auto vrf = vrfs_.find(name);
    if (vrf->second.ids.empty() && vrf->second.families.empty()) { vrfs_.erase(vrf); }
}

}  // namespace Pel::Oc

#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <optional>
#include <string>

#include "model/View/RouteTables.h"
#include "model/Vrf/VrfIdMap.h"

namespace Pel::Oc {

/// The VRFs of the shared memory by name: those that the id map names and those that have a route
/// table. For who shows them; it mounts nothing.
///
///   input                       handler       output
///   vrfIdMap entry, presence    handleVrf     ids of a name
///   a table comes or goes       handleTable   families of a name
class VrfTables final : public Vel::RefCounted {
public:
    using Table = OcApi::RouteTables::Table;
    struct Entry {
        absl::btree_set<Vrf::VrfId> ids;
        absl::btree_set<Nexo::AddressFamily> families;  // whose table is in the store
    };
    using Vrfs = absl::btree_map<std::string, Entry>;

    /// @param vrfIdMap may be null: no ids
    VrfTables(Vel::Ref<Mesa::EntityManager> tables, Vel::Ref<Vrf::VrfIdMap::Status> vrfIdMap);

    const Vrfs& vrfs() const { return vrfs_; }
    /// The first name after the given one, or of all.
    std::optional<std::string> nextName(const std::optional<std::string>& after) const;
    /// The VRF's route table as the agent has it mounted; null when it has not.
    Vel::Ref<Table> table(Nexo::AddressFamily family, const std::string& vrf) const;

private:
    void handleVrf(Vrf::VrfId id);
    void handleVrfs();
    void handleTable(const std::string& path);
    void forget(const std::string& name);

    Vel::Ref<Mesa::EntityManager> tables_;
    Vel::Ref<Vrf::VrfIdMap::Status> vrfIdMap_;
    Vrfs vrfs_;
    absl::btree_map<Vrf::VrfId, std::string> names_;
    Vel::Subscription onVrf_;
    Vel::Subscription onVrfs_;
    Vel::Subscription onTable_;
};

}  // namespace Pel::Oc

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "model/Aft/StateSyncedContainer.h"
#include "model/View/OpenConfigInstances.h"
#include "platform/Vel/Subscription.h"

namespace Pel::OcApi {

/// The entities of the tree's directory "stateSynced", which comes when the export is switched on,
/// by the numbers of their VRFs.
class StateSyncedFlags final {
public:
    /// One has come, gone or changed.
    using Changed = std::function<void(std::uint32_t vrf)>;

    /// `root` holds the directory; `instances` outlives this object. Tells of what is there already,
    /// from the constructor.
    StateSyncedFlags(Vel::Ref<Vel::Dir> root, OpenConfigInstances& instances, Changed changed);

    /// Null when the VRF has none.
    const StateSyncedContainer* find(std::uint32_t vrf) const;
    /// The first one after the VRF, or of all.
    std::optional<std::uint32_t> next(std::optional<std::uint32_t> after) const;

private:
    struct Known {
        Vel::Ref<StateSyncedContainer> entity;
        std::vector<Vel::Subscription> onFlag;
    };
    void handleDir();
    void handleEntity(const std::string& vrf);

    const Vel::Ref<Vel::Dir> root_;
    OpenConfigInstances& instances_;
    const Changed changed_;
    Vel::Ref<Vel::Dir> dir_;  // null: not there
    std::map<std::uint32_t, Known> known_;
    Vel::Subscription onRoot_;
    Vel::Subscription onDir_;
};

}  // namespace Pel::OcApi

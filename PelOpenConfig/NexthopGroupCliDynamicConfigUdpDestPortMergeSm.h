#pragma once

#include <utility>

#include "PelOpenConfig/ConfigMergeSm.h"
#include "model/Tunnel/UdpDestinationPortConfig.h"

namespace Pel::Oc {

/// Merges the UDP destination ports that are configured and those of the dynamic sources, by payload
/// type, see ConfigMergeSm.
class NexthopGroupCliDynamicConfigUdpDestPortMergeSm final : public ConfigMergeSm {
public:
    /// `configured` and `dynamic` may be null: empty.
    NexthopGroupCliDynamicConfigUdpDestPortMergeSm(
        Vel::Ref<L3::Tunnel::UdpDestinationPortConfig> merged,
        Vel::Ref<const L3::Tunnel::UdpDestinationPortConfig> configured,
        Vel::Ref<const Vel::Dir> dynamic,
        const Lmo::SmControl& lumoControl);

private:
    void begin() override;
    bool add(const Vel::Entity& source) override;
    void end() override;

    Vel::Ref<L3::Tunnel::UdpDestinationPortConfig> merged_;  // output; nobody else writes it
    Vel::Ref<const L3::Tunnel::UdpDestinationPortConfig> configured_;
    L3::Tunnel::UdpDestinationPortConfigRecord record_;  // of the merge under way
};

/// Takes the constructor's arguments.
template <class... Args>
Vel::Ref<NexthopGroupCliDynamicConfigUdpDestPortMergeSm>
NexthopGroupCliDynamicConfigUdpDestPortMergeSmIs(Args&&... args) {
    return Vel::make<NexthopGroupCliDynamicConfigUdpDestPortMergeSm>(std::forward<Args>(args)...);
}

}  // namespace Pel::Oc

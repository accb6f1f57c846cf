#pragma once

#include "platform/Vel/Attribute.h"
#include "platform/Vel/Entity.h"
#include "platform/Vel/Fields.h"

namespace Pel::OcApi {

/// Says of one VRF, whose name it bears, that its exported state is synced.
class StateSyncedContainer final : public Vel::Entity {
public:
    using Vel::Entity::Entity;
    bool ipv4Unicast() const { return ipv4Unicast_.get(); }
    void ipv4UnicastIs(bool synced) { ipv4Unicast_.set(synced); }
    Vel::Publisher<>& onIpv4Unicast() const { return ipv4Unicast_.changed(); }
    bool ipv6Unicast() const { return ipv6Unicast_.get(); }
    void ipv6UnicastIs(bool synced) { ipv6Unicast_.set(synced); }
    Vel::Publisher<>& onIpv6Unicast() const { return ipv6Unicast_.changed(); }
    static constexpr auto fields() {
        return Vel::fields(Vel::field("ipv4Unicast", &StateSyncedContainer::ipv4Unicast_),
                           Vel::field("ipv6Unicast", &StateSyncedContainer::ipv6Unicast_));
    }

private:
    Vel::Attribute<bool> ipv4Unicast_{false};
    Vel::Attribute<bool> ipv6Unicast_{false};
};

}  // namespace Pel::OcApi

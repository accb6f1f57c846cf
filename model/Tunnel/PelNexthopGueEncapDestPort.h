#pragma once

#include <cstdint>
#include <string>

#include "platform/Vel/Attribute.h"
#include "platform/Vel/Entity.h"
#include "platform/Vel/Fields.h"

namespace Pel::Oc {

/// UDP destination ports of GUE tunnels by what the tunnel carries; 0: none. Each port is published
/// when it changes. One writer: the GUE port machine. Stands in the streamed tree, where the views
/// find it.
class PelNexthopGueEncapDestPort final : public Vel::Entity {
public:
    static constexpr const char* kName = "gueEncapDestPort";
    using Vel::Entity::Entity;

    std::uint16_t gueMplsEncapUdpDestPort() const { return mpls_.get(); }
    void gueMplsEncapUdpDestPortIs(std::uint16_t port) { mpls_.set(port); }
    Vel::Publisher<>& onGueMplsEncapUdpDestPort() const { return mpls_.changed(); }

    std::uint16_t gueIPv4EncapUdpDestPort() const { return ipv4_.get(); }
    void gueIPv4EncapUdpDestPortIs(std::uint16_t port) { ipv4_.set(port); }
    Vel::Publisher<>& onGueIPv4EncapUdpDestPort() const { return ipv4_.changed(); }

    std::uint16_t gueIPv6EncapUdpDestPort() const { return ipv6_.get(); }
    void gueIPv6EncapUdpDestPortIs(std::uint16_t port) { ipv6_.set(port); }
    Vel::Publisher<>& onGueIPv6EncapUdpDestPort() const { return ipv6_.changed(); }

    /// Publishes all three as they are.
    void publish() const {
        mpls_.publish();
        ipv4_.publish();
        ipv6_.publish();
    }

    static constexpr auto fields() {
        return Vel::fields(
            Vel::field("gueMplsEncapUdpDestPort", &PelNexthopGueEncapDestPort::mpls_),
            Vel::field("gueIPv4EncapUdpDestPort", &PelNexthopGueEncapDestPort::ipv4_),
            Vel::field("gueIPv6EncapUdpDestPort", &PelNexthopGueEncapDestPort::ipv6_));
    }

private:
    Vel::Attribute<std::uint16_t> mpls_{0};
    Vel::Attribute<std::uint16_t> ipv4_{0};
    Vel::Attribute<std::uint16_t> ipv6_{0};
};

inline Vel::Ref<PelNexthopGueEncapDestPort> pelNexthopGueEncapDestPortFactory(
    const std::string& name) {
    return Vel::make<PelNexthopGueEncapDestPort>(name);
}

}  // namespace Pel::Oc

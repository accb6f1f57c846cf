#pragma once

#include <cstdint>
#include <utility>

#include "model/Tunnel/DecapConfig.h"
#include "model/Tunnel/PelNexthopGueEncapDestPort.h"
#include "model/Tunnel/UdpDestinationPortConfig.h"
#include "platform/Vel/Sm.h"

namespace Pel::Oc {

/// Keeps the GUE destination ports of each payload, from what is configured.
///
///   input                                    handler                          output (gueEncapDestPort)
///   udpDestPortConfig entry, IPv4 or IPv6    handleGueDestPortConfig          that payload's port
///   udpDestPortConfig entry, MPLS            handleGueDestPortConfig          the MPLS port, from dgConfig
///   dgConfig                                 handleDecapGroupDestPortConfig   the MPLS port
///
/// The MPLS port is that of the decap groups for MPLS. Of several the last one in the order of their
/// names wins; a port that is configured, but not for MPLS, is passed over. While every group's port
/// is passed over the port stays as it is; without any group for MPLS it is 0. What was passed over
/// is looked at again when the groups or the port configured for MPLS change, not when another
/// payload's does.
///
/// The only writer of the record. An input that the host could not find is null and reads as empty.
class PelNexthopGuePortSm final : public Vel::Sm {
public:
    PelNexthopGuePortSm(Vel::Ref<const Tunnel::Decap::Config> dgConfig,
                        Vel::Ref<const L3::Tunnel::UdpDestinationPortConfig> udpDestPortConfig,
                        Vel::Ref<PelNexthopGueEncapDestPort> gueEncapDestPort);

    void handleInitialized();
    void handleGueDestPortConfig(Tunnel::PayloadType type);
    void handleDecapGroupDestPortConfig();
    void setGueMplsEncapUdpDestPortViaDecapGroup(std::uint16_t port);

private:
    /// False for a port that is configured, but not for MPLS.
    bool mayCarryMpls(std::uint16_t port) const;

    Vel::Ref<const Tunnel::Decap::Config> dgConfig_;
    Vel::Ref<const L3::Tunnel::UdpDestinationPortConfig> udpDestPortConfig_;
    Vel::Ref<PelNexthopGueEncapDestPort> gueEncapDestPort_;  // output; nobody else writes it
    Vel::Subscription onPayloadTypeToPort_;
    Vel::Subscription onDecapGroup_;
};

/// Takes the constructor's arguments.
template <class... Args>
Vel::Ref<PelNexthopGuePortSm> PelNexthopGuePortSmIs(Args&&... args) {
    return Vel::make<PelNexthopGuePortSm>(std::forward<Args>(args)...);
}

}  // namespace Pel::Oc

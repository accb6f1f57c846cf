#include "PelOpenConfig/PelNexthopGuePortSm.h"

#include <map>
#include <optional>
#include <vector>

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("PelNexthopGuePortSm");

namespace Pel::Oc {

using Tunnel::PayloadType;

namespace {

using PayloadTypeToPort = std::map<PayloadType, L3::Tunnel::DestinationPort>;

const PayloadTypeToPort& portsOf(
    const Vel::Ref<const L3::Tunnel::UdpDestinationPortConfig>& config) {
    static const PayloadTypeToPort none;
    return config ? config->record().payloadTypeToPort : none;
}

/// 0: not configured.
std::uint16_t portOf(const PayloadTypeToPort& ports, PayloadType type) {
    const auto found = ports.find(type);
    return found == ports.end() ? std::uint16_t{0} : found->second.port;
}

}  // namespace

PelNexthopGuePortSm::PelNexthopGuePortSm(
    Vel::Ref<const Tunnel::Decap::Config> dgConfig,
    Vel::Ref<const L3::Tunnel::UdpDestinationPortConfig> udpDestPortConfig,
    Vel::Ref<PelNexthopGueEncapDestPort> gueEncapDestPort)
    : dgConfig_{std::move(dgConfig)},
      udpDestPortConfig_{std::move(udpDestPortConfig)},
      gueEncapDestPort_{std::move(gueEncapDestPort)} {
    handleInitialized();
}

void PelNexthopGuePortSm::handleInitialized() {
    TRACE9("Starting");
    if (udpDestPortConfig_) {
        onPayloadTypeToPort_ = udpDestPortConfig_->onPayloadTypeToPort().subscribe(
            this, &PelNexthopGuePortSm::handleGueDestPortConfig);
    }
    if (dgConfig_) {
        onDecapGroup_ = dgConfig_->onRecord().subscribe(
            this, &PelNexthopGuePortSm::handleDecapGroupDestPortConfig);
    }
    gueEncapDestPort_->publish();
    std::vector<PayloadType> configured;  // a reaction may change the configuration
    for (const auto& [type, port] : portsOf(udpDestPortConfig_)) { configured.push_back(type); }
    for (const PayloadType type : configured) { handleGueDestPortConfig(type); }
    handleDecapGroupDestPortConfig();
}

void PelNexthopGuePortSm::handleGueDestPortConfig(PayloadType type) {
    const std::uint16_t port = portOf(portsOf(udpDestPortConfig_), type);
    switch (type) {
        case PayloadType::ipv4:
            gueEncapDestPort_->gueIPv4EncapUdpDestPortIs(port);
            return;
        case PayloadType::ipv6:
            gueEncapDestPort_->gueIPv6EncapUdpDestPortIs(port);
            return;
        case PayloadType::mpls:
            handleDecapGroupDestPortConfig();
            return;
        case PayloadType::none:
        case PayloadType::gre:
            break;
    }
    TRACE5("Invalid PayloadType: {}, Port: {}", Tunnel::stringValue(type), port);
}

/// One port comes out of the walk and is published once: several groups must not have the port go
/// through all of theirs at each change of one.
void PelNexthopGuePortSm::handleDecapGroupDestPortConfig() {
    TRACE9("");
    bool anyForMpls = false;
    std::optional<std::uint16_t> last;
    if (dgConfig_) {
        for (const auto& [name, group] : dgConfig_->record().decapGroup) {
            if (group.payloadType != PayloadType::mpls) { continue; }
            anyForMpls = true;
            if (mayCarryMpls(group.dPort)) { last = group.dPort; }
        }
    }
    if (last) {
        setGueMplsEncapUdpDestPortViaDecapGroup(*last);
    } else if (!anyForMpls) {
        gueEncapDestPort_->gueMplsEncapUdpDestPortIs(0);
    }
}

void PelNexthopGuePortSm::setGueMplsEncapUdpDestPortViaDecapGroup(std::uint16_t port) {
    if (mayCarryMpls(port)) { gueEncapDestPort_->gueMplsEncapUdpDestPortIs(port); }
}

bool PelNexthopGuePortSm::mayCarryMpls(std::uint16_t port) const {
    bool configured = false;
    for (const auto& [type, entry] : portsOf(udpDestPortConfig_)) {
        if (entry.port != port) { continue; }
        if (type == PayloadType::mpls) { return true; }
        configured = true;
    }
    return !configured;
}

}  // namespace Pel::Oc

#include "PelOpenConfig/NexthopGroupCliDynamicConfigUdpDestPortMergeSm.h"

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("NexthopGroupCliDynamicConfigUdpDestPortMergeSm");

namespace Pel::Oc {

using L3::Tunnel::UdpDestinationPortConfig;
using Self = NexthopGroupCliDynamicConfigUdpDestPortMergeSm;

Self::NexthopGroupCliDynamicConfigUdpDestPortMergeSm(
    Vel::Ref<UdpDestinationPortConfig> merged,
    Vel::Ref<const UdpDestinationPortConfig> configured,
    Vel::Ref<const Vel::Dir> dynamic,
    const Lmo::SmControl& lumoControl)
    : ConfigMergeSm{std::move(dynamic),
                    lumoControl,
                    "NexthopGroupCliDynamicConfigUdpDestPortMergeSmTask"},
      merged_{std::move(merged)},
      configured_{std::move(configured)} {
    TRACE9("Starting");
    handleInitialized(configured_ ? &configured_->onRecord() : nullptr);
}

void Self::begin() {
    record_ = configured_ ? configured_->record() : L3::Tunnel::UdpDestinationPortConfigRecord{};
}

bool Self::add(const Vel::Entity& source) {
    const auto* const input = dynamic_cast<const UdpDestinationPortConfig*>(&source);
    if (input == nullptr) { return false; }
    const auto& ports = input->record().payloadTypeToPort;
    record_.payloadTypeToPort.insert(ports.begin(), ports.end());
    return true;
}

void Self::end() {
    merged_->recordIs(std::exchange(record_, {}));
}

}  // namespace Pel::Oc

#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "model/Record/MirroredRecord.h"
#include "model/Tunnel/PayloadType.h"

namespace L3::Tunnel {

/// A UDP destination port and who set it.
struct DestinationPort {
    std::uint16_t port = 0;
    std::uint8_t configMode = 0;  ///< 0 default, 1 configured
    static constexpr auto fields() {
        return Vel::fields(Vel::field("port", &DestinationPort::port),
                           Vel::field("configMode", &DestinationPort::configMode));
    }
    friend bool operator==(const DestinationPort&, const DestinationPort&) = default;
};

struct UdpDestinationPortConfigRecord {
    std::map<::Tunnel::PayloadType, DestinationPort> payloadTypeToPort;
    static constexpr auto fields() {
        return Vel::fields(
            Vel::field("payloadTypeToPort", &UdpDestinationPortConfigRecord::payloadTypeToPort));
    }
};

/// UDP destination ports of tunnels, by what they carry: of one source, mirrored, or of all
/// sources, merged in this process.
class UdpDestinationPortConfig final : public Pel::MirroredRecord<UdpDestinationPortConfigRecord> {
public:
    static constexpr const char* kType = "L3::Tunnel::UdpDestinationPortConfig";
    static constexpr const char* kPath = "l3/tunnel/udpDestinationPortConfig";
    /// Directory of what dynamic sources configure, an entity of this type each.
    static constexpr const char* kDynamicPath = "routing/nexthopgroup/input/config";
    using MirroredRecord::MirroredRecord;
    using MirroredRecord::recordIs;
    /// What was merged.
    void recordIs(UdpDestinationPortConfigRecord record) { replace(std::move(record)); }
    /// The entry of this payload type was added, changed or removed.
    Vel::Publisher<::Tunnel::PayloadType>& onPayloadTypeToPort() const { return onEntry_; }

private:
    void recordChanged(const UdpDestinationPortConfigRecord& previous) override;
    mutable Vel::Publisher<::Tunnel::PayloadType> onEntry_;
};

}  // namespace L3::Tunnel

template <>
struct Mesa::RecordCodec<L3::Tunnel::UdpDestinationPortConfigRecord> {
    using Record = L3::Tunnel::UdpDestinationPortConfigRecord;
    static std::optional<Record> decode(std::string_view bytes);
    static std::string encode(const Record& record);
};

#include "model/Tunnel/UdpDestinationPortConfig.h"

#include <set>
#include <vector>

#include "model/Record/FlatBytes.h"
#include "model/Tunnel/Tunnel_generated.h"

namespace L3::Tunnel {

void UdpDestinationPortConfig::recordChanged(const UdpDestinationPortConfigRecord& previous) {
    const auto& before = previous.payloadTypeToPort;
    const auto now = record().payloadTypeToPort;  // a reaction may replace the record
    std::set<::Tunnel::PayloadType> types;
    for (const auto& [type, port] : before) { types.insert(type); }
    for (const auto& [type, port] : now) { types.insert(type); }
    for (const auto type : types) {
        const auto from = before.find(type);
        const auto to = now.find(type);
        const bool same = from != before.end() && to != now.end() && from->second == to->second;
        if (!same) { onEntry_.publish(type); }
    }
}

}  // namespace L3::Tunnel

using Codec = Mesa::RecordCodec<L3::Tunnel::UdpDestinationPortConfigRecord>;

std::optional<Codec::Record> Codec::decode(std::string_view bytes) {
    const auto* const table = Pel::Record::verified<Pel::Wire::UdpDestinationPortConfig>(bytes);
    if (table == nullptr) { return std::nullopt; }
    Record record;
    if (table->ports() == nullptr) { return record; }
    for (const Pel::Wire::PayloadPort* const from : *table->ports()) {
        record.payloadTypeToPort[static_cast<Tunnel::PayloadType>(from->payload_type())] = {
            from->port(), from->config_mode()};
    }
    return record;
}

std::string Codec::encode(const Record& record) {
    return Pel::Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        std::vector<Pel::Wire::PayloadPort> ports;
        for (const auto& [type, port] : record.payloadTypeToPort) {
            ports.emplace_back(static_cast<std::uint8_t>(type), port.configMode, port.port);
        }
        return Pel::Wire::CreateUdpDestinationPortConfig(to, to.CreateVectorOfStructs(ports));
    });
}

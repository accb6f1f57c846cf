#include "model/Tunnel/DecapConfig.h"

#include <vector>

#include "model/Record/FlatBytes.h"
#include "model/Tunnel/Tunnel_generated.h"

using Tunnel::Decap::ConfigRecord;

std::optional<ConfigRecord> Mesa::RecordCodec<ConfigRecord>::decode(std::string_view bytes) {
    const auto* const table = Pel::Record::verified<Pel::Wire::DecapConfig>(bytes);
    if (table == nullptr) { return std::nullopt; }
    ConfigRecord record;
    if (table->decap_group() == nullptr) { return record; }
    for (const Pel::Wire::DecapGroup* const from : *table->decap_group()) {
        record.decapGroup[from->name()->str()] = {
            static_cast<Tunnel::PayloadType>(from->payload_type()), from->d_port()};
    }
    return record;
}

std::string Mesa::RecordCodec<ConfigRecord>::encode(const ConfigRecord& record) {
    return Pel::Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        std::vector<flatbuffers::Offset<Pel::Wire::DecapGroup>> groups;
        for (const auto& [name, group] : record.decapGroup) {
            groups.push_back(
                Pel::Wire::CreateDecapGroup(to,
                                            to.CreateString(name),
                                            static_cast<std::uint8_t>(group.payloadType),
                                            group.dPort));
        }
        return Pel::Wire::CreateDecapConfig(to, to.CreateVector(groups));
    });
}

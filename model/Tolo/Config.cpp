#include "model/Tolo/Config.h"

#include "model/Record/FlatBytes.h"
#include "model/Tolo/Tolo_generated.h"

std::optional<Tolo::ConfigRecord> Mesa::RecordCodec<Tolo::ConfigRecord>::decode(
    std::string_view bytes) {
    const auto* const table = Pel::Record::verified<Pel::Wire::ToloConfig>(bytes);
    return table == nullptr ? std::nullopt
                            : std::optional{Tolo::ConfigRecord{table->aft_export_enabled()}};
}

std::string Mesa::RecordCodec<Tolo::ConfigRecord>::encode(const Tolo::ConfigRecord& record) {
    return Pel::Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        return Pel::Wire::CreateToloConfig(to, record.aftExportEnabled);
    });
}

#include "model/Readiness/ReadyRecord.h"

#include "model/Readiness/Readiness_generated.h"
#include "model/Record/FlatBytes.h"

std::optional<Pel::ReadyRecord> Mesa::RecordCodec<Pel::ReadyRecord>::decode(
    std::string_view bytes) {
    const auto* const table = Pel::Record::verified<Pel::Wire::Ready>(bytes);
    return table == nullptr ? std::nullopt : std::optional{Pel::ReadyRecord{table->ready()}};
}

std::string Mesa::RecordCodec<Pel::ReadyRecord>::encode(const Pel::ReadyRecord& record) {
    return Pel::Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        return Pel::Wire::CreateReady(to, record.ready);
    });
}

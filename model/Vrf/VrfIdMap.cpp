#include "model/Vrf/VrfIdMap.h"

#include "model/Record/FlatBytes.h"
#include "model/Vrf/VrfIdMap_generated.h"

std::optional<Vrf::VrfIdMap::Entry> Mesa::RecordCodec<Vrf::VrfIdMap::Entry>::decode(
    std::string_view bytes) {
    const auto* const table = Pel::Record::verified<Pel::Wire::VrfIdMapEntry>(bytes);
    if (table == nullptr || table->name()->size() > Vrf::VrfName::maxLength()) {
        return std::nullopt;
    }
    return Vrf::VrfIdMap::Entry{Vrf::VrfName{table->name()->string_view()}};
}

std::string Mesa::RecordCodec<Vrf::VrfIdMap::Entry>::encode(const Vrf::VrfIdMap::Entry& record) {
    return Pel::Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        return Pel::Wire::CreateVrfIdMapEntry(to, to.CreateString(record.vrfName.stringValue()));
    });
}

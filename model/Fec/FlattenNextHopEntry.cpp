#include "model/Fec/FlattenNextHopEntry.h"

#include "model/Fec/Fec_generated.h"
#include "model/Record/FlatBytes.h"

namespace Record = Pel::Record;
namespace Wire = Pel::Wire;

std::optional<Pel::FlattenNextHopEntry> Mesa::RecordCodec<Pel::FlattenNextHopEntry>::decode(
    std::string_view bytes) {
    const auto* const table = Record::verified<Wire::FlattenNextHopEntry>(bytes);
    if (table == nullptr) { return std::nullopt; }
    const Wire::NextHopEntry& from = *table->entry();
    return Pel::FlattenNextHopEntry{Pel::Stash::OcNextHopIndex{from.index()},
                                    Pel::NexthopGroupId{from.nhg_id()},
                                    Pel::NexthopGroupEntryIndex{from.nhg_entry_id()},
                                    Pel::Stash::Handle{from.record(), from.version()}};
}

std::string Mesa::RecordCodec<Pel::FlattenNextHopEntry>::encode(
    const Pel::FlattenNextHopEntry& record) {
    return Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        const Wire::NextHopEntry entry{record.index.value(),
                                       record.nhgId.value(),
                                       record.handle.record,
                                       record.handle.version,
                                       record.nhgEntryId.value()};
        return Wire::CreateFlattenNextHopEntry(to, &entry);
    });
}

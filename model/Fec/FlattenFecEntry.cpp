#include "model/Fec/FlattenFecEntry.h"

#include "model/Fec/Fec_generated.h"
#include "model/Record/FlatBytes.h"

namespace Record = Pel::Record;
namespace Wire = Pel::Wire;

std::optional<Pel::FlattenFecEntry> Mesa::RecordCodec<Pel::FlattenFecEntry>::decode(
    std::string_view bytes) {
    const auto* const table = Record::verified<Wire::FlattenFecEntry>(bytes);
    if (table == nullptr) { return std::nullopt; }
    const Wire::FecEntry& from = *table->entry();
    return Pel::FlattenFecEntry{Pel::Stash::Handle{from.record(), from.version()},
                                from.programmed_id(),
                                from.top_fec(),
                                from.second_flag()};
}

std::string Mesa::RecordCodec<Pel::FlattenFecEntry>::encode(const Pel::FlattenFecEntry& record) {
    return Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        const Wire::FecEntry entry{record.handle.record,
                                   record.programmedId,
                                   record.handle.version,
                                   record.topFec,
                                   record.secondFlag};
        return Wire::CreateFlattenFecEntry(to, &entry);
    });
}

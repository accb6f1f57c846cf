#include "model/Fec/FlattenFec.h"

#include "model/Fec/Fec_generated.h"
#include "model/Record/FlatBytes.h"

namespace Pel::Stash {

Vel::Ref<const FlattenFec> RecordCodec<FlattenFec>::decode(std::string_view bytes) {
    const auto* const table = Record::verified<Wire::FlattenFec>(bytes);
    if (table == nullptr) { return nullptr; }
    const auto fec = Vel::make<FlattenFec>();
    if (const auto* const members = table->members()) {
        for (const Wire::FecMember* const member : *members) {
            fec->nextHopIs({OcNextHopIndex{member->index()}, member->weight()});
        }
    }
    // The attribute accompanies a name; without one it says nothing.
    if (const auto* const name = table->name(); name != nullptr && name->size() > 0) {
        fec->nexthopGroupNameIs(name->str(), table->group_attribute());
    }
    return fec;
}

std::string RecordCodec<FlattenFec>::encode(const FlattenFec& record) {
    return Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        Wire::FecMember* members = nullptr;
        const auto memberVector =
            to.CreateUninitializedVectorOfStructs<Wire::FecMember>(record.nextHops(), &members);
        for (std::uint32_t i = 0; i < record.nextHops(); ++i) {
            const FlattenFecMember& from = record.nextHop(i);
            members[i] = Wire::FecMember{from.index.value(), from.weight};
        }
        const auto name = record.nexthopGroupName().empty()
                              ? flatbuffers::Offset<flatbuffers::String>{}
                              : to.CreateString(record.nexthopGroupName());
        return Wire::CreateFlattenFec(to, memberVector, name, record.groupAttribute());
    });
}

}  // namespace Pel::Stash

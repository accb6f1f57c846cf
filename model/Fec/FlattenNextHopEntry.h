#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "model/Fec/NexthopGroupEntry.h"
#include "model/Fec/OcNextHopIndex.h"
#include "platform/Mesa/Table.h"
#include "platform/Stash/Handle.h"
#include "platform/Vel/Fields.h"

namespace Pel {

/// One next hop of the flattened set, by OcNextHopIndex.
struct FlattenNextHopEntry {
    Stash::OcNextHopIndex index;
    NexthopGroupId nhgId;  ///< the group entry that counts this next hop
    NexthopGroupEntryIndex nhgEntryId;
    Stash::Handle handle;

    const Stash::Handle& nextHopDedupedRawPtr() const { return handle; }

    static constexpr auto fields() {
        return Vel::fields(Vel::field("index", &FlattenNextHopEntry::index),
                           Vel::field("nhgId", &FlattenNextHopEntry::nhgId),
                           Vel::field("nhgEntryId", &FlattenNextHopEntry::nhgEntryId));
    }
};

}  // namespace Pel

template <>
struct Mesa::RecordCodec<Pel::FlattenNextHopEntry> {
    static std::optional<Pel::FlattenNextHopEntry> decode(std::string_view bytes);
    static std::string encode(const Pel::FlattenNextHopEntry& record);
};

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Mesa/Table.h"
#include "platform/Stash/Handle.h"
#include "platform/Vel/Fields.h"

namespace Pel {

/// One FEC of the flattened set, by FecId. The default entry is that of a FEC that is not there.
struct FlattenFecEntry {
    Stash::Handle handle;
    std::uint64_t programmedId = 0;  ///< id in the programming protocol; 0 when it has none
    bool topFec = false;             ///< routes resolve to it; others are only the producer's
    bool secondFlag = false;

    const Stash::Handle& fecDedupedRawPtr() const { return handle; }

    static constexpr auto fields() {
        return Vel::fields(Vel::field("programmedId", &FlattenFecEntry::programmedId),
                           Vel::field("topFec", &FlattenFecEntry::topFec),
                           Vel::field("secondFlag", &FlattenFecEntry::secondFlag));
    }
    /// Equal in all, the handle included.
    static bool isEq(const FlattenFecEntry& a, const FlattenFecEntry& b) {
        return a.handle == b.handle && Vel::isEq(a, b);
    }
};

}  // namespace Pel

template <>
struct Mesa::RecordCodec<Pel::FlattenFecEntry> {
    static std::optional<Pel::FlattenFecEntry> decode(std::string_view bytes);
    static std::string encode(const Pel::FlattenFecEntry& record);
};

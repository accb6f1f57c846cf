#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model/Fec/NexthopGroupEntry.h"
#include "platform/Mesa/Table.h"
#include "platform/Vel/Fields.h"

namespace Routing::NexthopGroup {

/// The hardware counter of one group entry.
struct CounterKeyEntry {
    std::uint64_t counterIndex = 0;  ///< 0: none
    bool valid() const { return counterIndex != 0; }
    static constexpr auto fields() {
        return Vel::fields(Vel::field("counterIndex", &CounterKeyEntry::counterIndex));
    }
};

/// Group entry to counter index, a shared-memory table.
class NexthopGroupEntryToCounterKeyTable final
    : public Mesa::TypedTable<Pel::NexthopGroupEntryCounterKey, CounterKeyEntry> {
public:
    static constexpr const char* kType =
        "Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable";
    static constexpr const char* kPath = "tunnel/nexthop/counterkeyinfo";
    explicit NexthopGroupEntryToCounterKeyTable(const std::string& path)
        : TypedTable{path, kType} {}
};

}  // namespace Routing::NexthopGroup

template <>
struct Mesa::RecordCodec<Routing::NexthopGroup::CounterKeyEntry> {
    static std::optional<Routing::NexthopGroup::CounterKeyEntry> decode(std::string_view bytes);
    static std::string encode(const Routing::NexthopGroup::CounterKeyEntry& record);
};

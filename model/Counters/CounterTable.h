#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model/Counters/CounterIndex.h"
#include "platform/Mesa/Table.h"
#include "platform/Vel/Fields.h"

namespace FlexCounters {

/// What a hardware counter has counted; all zero: nothing yet.
struct MesaFlexCounter {
    std::uint64_t packets = 0;
    std::uint64_t octets = 0;
    static constexpr auto fields() {
        return Vel::fields(Vel::field("packets", &MesaFlexCounter::packets),
                           Vel::field("octets", &MesaFlexCounter::octets));
    }
    static bool isEq(const MesaFlexCounter& a, const MesaFlexCounter& b) { return Vel::isEq(a, b); }
};

/// The hardware counters of next hops and of tunnels, a shared-memory table: those of the feature
/// "Nexthop", instance 0xFFFFFFFF.
class CounterTable final : public Mesa::TypedTable<CounterIndex, MesaFlexCounter> {
public:
    static constexpr const char* kType = "FlexCounters::CounterTable";
    static constexpr const char* kPath = "flexCounters/counterTable/Nexthop/4294967295";
    explicit CounterTable(const std::string& path) : TypedTable{path, kType} {}
};

}  // namespace FlexCounters

template <>
struct Mesa::RecordCodec<FlexCounters::MesaFlexCounter> {
    static std::optional<FlexCounters::MesaFlexCounter> decode(std::string_view bytes);
    static std::string encode(const FlexCounters::MesaFlexCounter& record);
};

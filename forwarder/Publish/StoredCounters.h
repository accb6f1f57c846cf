#pragma once

#include <absl/functional/function_ref.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "forwarder/Flatten/MemberCounters.h"
#include "model/Counters/CounterTable.h"
#include "platform/Mesa/Publisher.h"
#include "platform/Store/Writer.h"

namespace Pel::Forwarder {

/// The counter of an IP-in-IP tunnel's FEC; none of another FEC, or one with a number that a tunnel
/// identifier has no room for.
std::optional<FlexCounters::CounterIndex> tunnelCounter(FecId id);

/// The counter table, and beside it, not for readers, what each counter owes to counts that began anew. All calls go into the writer's
/// open transaction; one call changes at most two records, but for rewrite().
class StoredCounters {
public:
    using Index = FlexCounters::CounterIndex;
    /// Counters with neighbouring numbers stand in neighbouring pages: so many are rewritten together.
    static constexpr std::uint64_t kBlock = 64;

    explicit StoredCounters(Store::Writer& writer);
    bool valid() const { return table_.valid() && offsets_ != 0; }

    /// Readers are told even when it is equal.
    void set(Index index, const CountedTraffic& counted);
    void erase(Index index);
    /// None when there is no such counter, or its record does not verify.
    std::optional<CountedTraffic> find(Index index);
    /// The visitor must not write.
    void forEach(absl::FunctionRef<void(Index)> visit);

    /// Where the counters of one part of `parts` are; each belongs to the part (number / kBlock) mod `parts`.
    struct Walk {
        std::uint64_t part = 0;
        std::uint64_t parts = 1;
        std::uint64_t next = 0;  ///< lower numbers have been walked
    };
    /// Tells readers of the next counters of the walk again, as they are: at most `limit`, and after at most as many look-ups.
    /// False when that was the last.
    bool rewrite(Walk& walk, std::size_t limit);

private:
    Store::Writer& writer_;
    Mesa::TablePublisher<Index, FlexCounters::MesaFlexCounter> table_;
    Store::TableId offsets_;
};

}  // namespace Pel::Forwarder

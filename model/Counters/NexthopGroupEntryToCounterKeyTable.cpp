#include "model/Counters/NexthopGroupEntryToCounterKeyTable.h"

#include "model/Counters/Counters_generated.h"
#include "model/Record/FlatBytes.h"

using Routing::NexthopGroup::CounterKeyEntry;

std::optional<CounterKeyEntry> Mesa::RecordCodec<CounterKeyEntry>::decode(std::string_view bytes) {
    const auto* const table = Pel::Record::verified<Pel::Wire::CounterKey>(bytes);
    return table == nullptr ? std::nullopt : std::optional{CounterKeyEntry{table->counter_index()}};
}

std::string Mesa::RecordCodec<CounterKeyEntry>::encode(const CounterKeyEntry& record) {
    return Pel::Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        return Pel::Wire::CreateCounterKey(to, record.counterIndex);
    });
}

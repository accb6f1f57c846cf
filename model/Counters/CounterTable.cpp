#include "model/Counters/CounterTable.h"

#include "model/Counters/Counters_generated.h"
#include "model/Record/FlatBytes.h"

using FlexCounters::MesaFlexCounter;

std::optional<MesaFlexCounter> Mesa::RecordCodec<MesaFlexCounter>::decode(std::string_view bytes) {
    const auto* const table = Pel::Record::verified<Pel::Wire::FlexCounter>(bytes);
    return table == nullptr ? std::nullopt
                            : std::optional{MesaFlexCounter{table->packets(), table->octets()}};
}

std::string Mesa::RecordCodec<MesaFlexCounter>::encode(const MesaFlexCounter& record) {
    return Pel::Record::encode([&](flatbuffers::FlatBufferBuilder& to) {
        return Pel::Wire::CreateFlexCounter(to, record.packets, record.octets);
    });
}

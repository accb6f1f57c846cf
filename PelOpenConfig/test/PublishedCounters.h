#pragma once

#include "PelOpenConfig/PelCountersMapperSm.h"
#include "PelOpenConfig/test/PublishedExport.h"
#include "platform/Mesa/Publisher.h"

namespace Pel::Oc {

/// A published set of next hops, each with a counter under its own number, and both mappers over
/// it: for benches and tests at scale.
class PublishedCounters {
public:
    explicit PublishedCounters(std::uint64_t count);

    /// Writes counters 1 to `count` with this many packets, also those that are as they were.
    /// `committed` is called after each transaction.
    template <class Committed>
    void countersAre(std::uint64_t count, std::uint64_t packets, Committed committed) {
        for (std::uint64_t id = 1; id <= count; ++id) {
            counterIs(id, packets);
            if (id % kAtOnce == 0 || id == count) {
                (void)from.writer().commit();
                committed();
            }
        }
    }
    /// Packets of 64 octets.
    void counterIs(std::uint64_t id, std::uint64_t packets) {
        publisher_.set(FlexCounters::CounterIndex{id}, {packets, packets * 64}, true);
    }
    /// The agent hears of all that is committed and does all there is to do.
    void settle();

    PublishedExport from;
    Vel::Ref<FlexCounters::CounterTable> counterTable;
    Vel::Ref<OcApi::NextHopContainer> nextHops = Vel::make<OcApi::NextHopContainer>("nextHops");
    Vel::Ref<OcApi::NextHopCountersContainer> nextHopCounters =
        Vel::make<OcApi::NextHopCountersContainer>("nextHopCounters");
    Vel::Ref<PelOcFecExportData> pelOcFecExportData = Vel::make<PelOcFecExportData>();
    Vel::Ref<PelOcNextHopCountersMap> countersMap = Vel::make<PelOcNextHopCountersMap>();
    Vel::Ref<NexthopMapperSm> mapper;
    Vel::Ref<CountersMapperSm> counters;

private:
    static constexpr std::uint64_t kAtOnce = 512;  // a record and what the log says of it
    Mesa::TablePublisher<FlexCounters::CounterIndex, FlexCounters::MesaFlexCounter> publisher_{
        from.writer(), FlexCounters::CounterTable::kPath, FlexCounters::CounterTable::kType};
};

}  // namespace Pel::Oc

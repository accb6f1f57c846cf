#include "PelOpenConfig/test/PublishedCounters.h"

#include "platform/Store/Snapshot.h"

namespace Pel::Oc {

using FlexCounters::CounterTable;
using Routing::NexthopGroup::CounterKeyEntry;
using CounterKeyTable = Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable;

PublishedCounters::PublishedCounters(std::uint64_t count) : from{count, fillPlain} {
    Mesa::TablePublisher<NexthopGroupEntryCounterKey, CounterKeyEntry> keys{
        from.writer(), CounterKeyTable::kPath, CounterKeyTable::kType};
    for (std::uint64_t id = 1; id <= count; ++id) {
        keys.set({NexthopGroupId{id}, NexthopGroupEntryIndex{0}}, {id});
        if (id % kAtOnce == 0) { (void)from.writer().commit(); }
    }
    (void)from.writer().commit();

    Mesa::MountGroup group{from.tables};
    group.mount(CounterKeyTable::kPath, CounterKeyTable::kType);
    group.mount(CounterTable::kPath, CounterTable::kType);
    group.close();
    settle();
    counterTable = from.tables->entity<CounterTable>(CounterTable::kPath);
    mapper = NexthopMapperSmIs(from.scheduler,
                               from.mountGroup,
                               from.set,
                               Vel::make<FlattenFecSetReadyStatus>("fecReadyStatus"),
                               nextHops,
                               Vel::make<FecReadyTrackingState>(),
                               nextHopCounters,
                               pelOcFecExportData,
                               from.context,
                               countersMap,
                               from.tables->entity<CounterKeyTable>(CounterKeyTable::kPath),
                               nullptr,
                               nullptr);
    counters = countersMapperSmFactory(from.scheduler,
                                       from.mountGroup,
                                       counterTable,
                                       from.set,
                                       countersMap,
                                       pelOcFecExportData,
                                       from.context);
    settle();
}

void PublishedCounters::settle() {
    const Vel::Ref<Store::Reader>& reader = from.tables->reader();
    Store::Snapshot head;
    do {
        from.scheduler->runUntilIdle();
        head.environmentIs({std::shared_ptr<void>{}, &from.writer().environment()});
    } while (!reader->caughtUp() || reader->position() < head.logLast());
}

}  // namespace Pel::Oc

#pragma once

#include <string>
#include <vector>

#include "PelOpenConfig/PelNexthopMapperSm.h"
#include "PelOpenConfig/test/ExportFixture.h"
#include "platform/Mesa/Publisher.h"

namespace Pel::Oc {

/// A next-hop mapper over the producer's store, made by start().
class MapperFixture : public ExportFixture {
protected:
    using CounterKeyTable = Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable;
    MapperFixture() {
        Mesa::MountGroup group{mesa};
        group.mount(Vrf::VrfIdMap::Status::kPath, Vrf::VrfIdMap::Status::kType);
        group.mount(CounterKeyTable::kPath, CounterKeyTable::kType);
        group.close();
        counterKeyTable = mesa->entity<CounterKeyTable>(CounterKeyTable::kPath);
        vrfIdMap = mesa->entity<Vrf::VrfIdMap::Status>(Vrf::VrfIdMap::Status::kPath);
        onProcessed = nextHopSet->onProcessed().subscribe(
            [this](const OcApi::NextHopIndex& id) { processed.push_back(id.value()); });
    }
    ~MapperFixture() override { sut = nullptr; }
    MapperFixture(const MapperFixture&) = delete;
    MapperFixture& operator=(const MapperFixture&) = delete;

    void start() {
        sut = NexthopMapperSmIs(scheduler,
                                stashMountGroup,
                                flattenFecSet,
                                flattenFecSetReadyStatus,
                                nextHopSet,
                                fecReadyState,
                                nextHopCounterSet,
                                pelOcFecExportData,
                                anchorValidatorCtx,
                                pelOcNextHopCountersMap,
                                counterKeyTable,
                                vxlanVtiStatusDir,
                                vrfIdMap);
    }
    const OcApi::NextHop* entry(std::uint64_t id) const {
        return nextHopSet->nextHop(OcApi::NextHopIndex{id});
    }
    void vrfIs(std::uint32_t id, const std::string& name) {
        Mesa::TablePublisher<Vrf::VrfId, Vrf::VrfIdMap::Entry> table{
            *writer, Vrf::VrfIdMap::Status::kPath, Vrf::VrfIdMap::Status::kType};
        table.set(Vrf::VrfId{id}, {Vrf::VrfName{name}});
    }
    /// The counter of an entry of a group. The table comes with its first row.
    void counterKeyIs(const NexthopGroupEntryCounterKey& key, std::uint64_t counterIndex) {
        counterKeys().set(key, {counterIndex});
    }
    void counterKeyDel(const NexthopGroupEntryCounterKey& key) { counterKeys().erase(key); }
    std::vector<std::string> texts() const { return traces.texts("PelNexthopMapperSm"); }
    /// Replaces the status of all VXLAN tunnel interfaces.
    void vtisAre(const Vxlan::VtiStatusDirRecord& record) {
        vxlanVtiStatusDir->recordIs(Mesa::RecordCodec<Vxlan::VtiStatusDirRecord>::encode(record));
    }

    Vel::Ref<OcApi::NextHopContainer> nextHopSet = Vel::make<OcApi::NextHopContainer>("nextHops");
    Vel::Ref<OcApi::NextHopCountersContainer> nextHopCounterSet =
        Vel::make<OcApi::NextHopCountersContainer>("nextHopCounters");
    Vel::Ref<Vxlan::VtiStatusDir> vxlanVtiStatusDir = Vel::make<Vxlan::VtiStatusDir>("vxlan");
    Vel::Ref<Vrf::VrfIdMap::Status> vrfIdMap;
    Vel::Ref<CounterKeyTable> counterKeyTable;
    Vel::Ref<NexthopMapperSm> sut;
    std::vector<std::uint64_t> processed;
    Vel::Subscription onProcessed;

private:
    Mesa::TablePublisher<NexthopGroupEntryCounterKey, Routing::NexthopGroup::CounterKeyEntry>
    counterKeys() {
        return {*writer, CounterKeyTable::kPath, CounterKeyTable::kType};
    }
};

}  // namespace Pel::Oc

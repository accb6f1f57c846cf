#pragma once

#include <gmock/gmock.h>

#include <string>

#include "PelOpenConfig/PelAnchorValidatorContext.h"
#include "PelOpenConfig/PelOcFecExportData.h"
#include "model/Counters/PelOcNextHopCountersMap.h"
#include "model/Fec/FlattenFec.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "model/Fec/FlattenFecSet.h"
#include "model/Readiness/FecReadyTrackingState.h"
#include "model/Readiness/FlattenFecSetReadyStatus.h"
#include "model/Registration.h"
#include "platform/Kiln/YieldPolicy.h"
#include "platform/Stash/Publisher.h"
#include "platform/Store/test/StoreFixture.h"
#include "test/support/TraceCapture.h"

namespace Pel::Oc {

/// A producer of the flattened FEC set and the agent's mount of it, over one real store.
class ExportFixture : public Store::StoreFixture {
protected:
    ExportFixture() {
        registerModelTypes();
        stashMountGroup->mount(FlattenFecSet::kPath,
                               FlattenFecSet::kType,
                               {Mesa::TableKind::stashSet, {"fec", "nextHop"}});
        stashMountGroup->close();
        flattenFecSet = mesa->entity<FlattenFecSet>(FlattenFecSet::kPath);
        anchorValidatorCtx = anchorValidatorContextFactory(flattenFecSet);
    }

    static Stash::OcNextHopIndex nh(std::uint64_t id) { return Stash::OcNextHopIndex{id}; }

    /// A next hop by way of 10.0.0.1.
    static void fill(Stash::FlattenFecNextHop& nextHop, const std::string& interface = "eth1");
    void nextHopIs(std::uint64_t id, const Stash::FlattenFecNextHop& nextHop) {
        nextHopContentIs(id, Stash::RecordCodec<Stash::FlattenFecNextHop>::encode(nextHop));
    }
    void nextHopIs(std::uint64_t id, const std::string& interface = "eth1") {
        Stash::FlattenFecNextHop nextHop;
        fill(nextHop, interface);
        nextHopIs(id, nextHop);
    }
    void nextHopContentIs(std::uint64_t id, const std::string& content) {
        nextHops.set(nh(id), {nh(id), nhgeck(id).nhgId, nhgeck(id).entryId, {}}, content);
    }
    /// The entry of a group that a next hop is, unless a test says otherwise.
    static NexthopGroupEntryCounterKey nhgeck(std::uint64_t id) {
        return {NexthopGroupId{1}, NexthopGroupEntryIndex{static_cast<std::uint32_t>(id)}};
    }
    void nextHopDel(std::uint64_t id) { nextHops.erase(nh(id)); }

    void fecIs(std::uint64_t id, const Stash::FlattenFec& fec, FlattenFecEntry entry) {
        fecs.set(FecId{id}, entry, Stash::RecordCodec<Stash::FlattenFec>::encode(fec));
    }
    void fecIs(std::uint64_t id, const Stash::FlattenFec& fec) {
        fecIs(id, fec, {{}, 0, true, false});
    }
    /// A top FEC with one next hop of weight 1.
    void fecIs(std::uint64_t id) {
        Stash::FlattenFec fec;
        fec.nextHopIs({nh(id), 1});
        fecIs(id, fec);
    }
    void commit() { ASSERT_EQ(writer->commit(), ""); }
    /// Lets the agent hear of it and do all there is to do.
    void publish() {
        commit();
        settleAfterASecond();
    }
    void fecReadyIs(bool ready) {
        flattenFecSetReadyStatus->recordIs(Mesa::RecordCodec<ReadyRecord>::encode({ready}));
    }

    TestSupport::TraceCapture traces;
    std::unique_ptr<Store::Writer> writer = makeWriter();
    Stash::ContentPublisher contents{*writer};
    Stash::CollectionPublisher<FecId, FlattenFecEntry> fecs{
        *writer, contents, "hardware/pel/ocAft/fec", FlattenFecSet::kFecType};
    Stash::CollectionPublisher<Stash::OcNextHopIndex, FlattenNextHopEntry> nextHops{
        *writer, contents, "hardware/pel/ocAft/nextHop", FlattenFecSet::kNextHopType};

    Vel::Ref<Store::Reader> reader = makeReader();
    Vel::Ref<Mesa::EntityManager> mesa = Vel::make<Mesa::EntityManager>(reader);
    Vel::Ref<Stash::Manager> stashManager = Vel::make<Stash::Manager>(reader);
    Vel::Ref<Stash::MountGroup> stashMountGroup =
        Vel::make<Stash::MountGroup>(mesa, stashManager, "stash");
    Vel::Ref<FlattenFecSet> flattenFecSet;
    Vel::Ref<AnchorValidatorContext> anchorValidatorCtx;
    Vel::Ref<FlattenFecSetReadyStatus> flattenFecSetReadyStatus =
        Vel::make<FlattenFecSetReadyStatus>("fecReadyStatus");
    Vel::Ref<FecReadyTrackingState> fecReadyState = Vel::make<FecReadyTrackingState>();
    Vel::Ref<PelOcFecExportData> pelOcFecExportData = Vel::make<PelOcFecExportData>();
    Vel::Ref<PelOcNextHopCountersMap> pelOcNextHopCountersMap =
        Vel::make<PelOcNextHopCountersMap>();
};

enum class Yield { never, always };

/// Runs each test of a walk under both yield policies.
template <class Fixture>
class UnderBothPolicies : public Fixture, public testing::WithParamInterface<Yield> {
protected:
    UnderBothPolicies() {
        if (GetParam() == Yield::always) {
            this->scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
        }
    }
    using testing::WithParamInterface<Yield>::GetParam;
};

inline std::string yieldName(const testing::TestParamInfo<Yield>& row) {
    return row.param == Yield::never ? "NeverYield" : "AlwaysYield";
}

}  // namespace Pel::Oc

#include <fstream>

#include "PelOpenConfig/PelNexthopMapperSm.h"
#include "PelOpenConfig/test/ExportFixture.h"
#include "platform/Mesa/Publisher.h"
#include "platform/Toggle/Toggle.h"

// A process of its own: each toggle is read once per process.
namespace Pel::Oc {
namespace {

using TogglesOff = ExportFixture;

TEST_F(TogglesOff, NoNetworkInstanceIsSetAndEachToggleIsReadFromItsFileOnce) {
    std::ofstream{dir.path() / "PelOpenConfig.json"}
        << R"({"OCNhDecapAndFallbackVrf": false, "OCNHGContentStreamingTtlTos": false})";
    std::ofstream{dir.path() / "PelL3Unicast.json"} << R"({"OCNextHopAftVxlanEncapHeader": false})";
    Toggle::directoryIs(dir.path());

    Mesa::TablePublisher<Vrf::VrfId, Vrf::VrfIdMap::Entry> table{
        *writer, Vrf::VrfIdMap::Status::kPath, Vrf::VrfIdMap::Status::kType};
    table.set(Vrf::VrfId{10}, {Vrf::VrfName{"red"}});
    Mesa::MountGroup group{mesa};
    group.mount(Vrf::VrfIdMap::Status::kPath, Vrf::VrfIdMap::Status::kType);
    group.close();
    Stash::FlattenFecNextHop nextHop;
    fill(nextHop);
    nextHop.decapVrfId = Vrf::VrfId{10};
    nextHop.fallbackVrfId = Vrf::VrfId{99};
    nextHopIs(7, nextHop);
    publish();

    const auto nextHopSet = Vel::make<OcApi::NextHopContainer>("nextHops");
    const auto sut =
        NexthopMapperSmIs(scheduler,
                          stashMountGroup,
                          flattenFecSet,
                          flattenFecSetReadyStatus,
                          nextHopSet,
                          fecReadyState,
                          Vel::make<OcApi::NextHopCountersContainer>("nextHopCounters"),
                          pelOcFecExportData,
                          anchorValidatorCtx,
                          pelOcNextHopCountersMap,
                          nullptr,
                          nullptr,
                          mesa->entity<Vrf::VrfIdMap::Status>(Vrf::VrfIdMap::Status::kPath));
    settle();
    const OcApi::NextHop* const entry = nextHopSet->nextHop(OcApi::NextHopIndex{7});
    ASSERT_NE(entry, nullptr);
    EXPECT_TRUE(entry->decapNetworkInstance.empty());
    EXPECT_TRUE(entry->fallbackNetworkInstance.empty());
    EXPECT_FALSE(traces.has("No entry for 99 in vrfIdToName map"));

    EXPECT_FALSE(toggleOCNhDecapAndFallbackVrfEnabled());
    EXPECT_FALSE(toggleOCNHGContentStreamingTtlTosEnabled());
    EXPECT_FALSE(toggleOCNextHopAftVxlanEncapHeaderEnabled());
    Toggle::directoryIs("/nonexistent");
    Toggle::forgetAll();
    EXPECT_FALSE(toggleOCNhDecapAndFallbackVrfEnabled()) << "read once per process";
}

}  // namespace
}  // namespace Pel::Oc

#include <fstream>

#include "PelOpenConfig/test/HeaderTexts.h"
#include "PelOpenConfig/test/MapperFixture.h"
#include "platform/Toggle/Toggle.h"

// A process of its own: each toggle is read once per process.
namespace Pel::Oc {
namespace {

using testing::IsEmpty;

/// Writes the toggle files before the first test.
class AllOff final : public testing::Environment {
public:
    void SetUp() override {
        std::ofstream{directory_.path() / "PelOpenConfig.json"}
            << R"({"OCNhDecapAndFallbackVrf": false, "OCNHGContentStreamingTtlTos": false})";
        std::ofstream{directory_.path() / "PelL3Unicast.json"}
            << R"({"OCNextHopAftVxlanEncapHeader": false})";
        Toggle::directoryIs(directory_.path());
    }

private:
    TestSupport::TempDir directory_;
};
[[maybe_unused]] testing::Environment* const allOff = testing::AddGlobalTestEnvironment(new AllOff);

using TogglesOff = MapperFixture;

TEST_F(TogglesOff, NoNetworkInstanceIsSetAndEachToggleIsReadFromItsFileOnce) {
    vrfIs(10, "red");
    Stash::FlattenFecNextHop nextHop;
    fill(nextHop);
    nextHop.decapVrfId = Vrf::VrfId{10};
    nextHop.fallbackVrfId = Vrf::VrfId{99};
    nextHopIs(7, nextHop);
    publish();
    start();
    settle();
    ASSERT_NE(entry(7), nullptr);
    EXPECT_TRUE(entry(7)->decapNetworkInstance.empty());
    EXPECT_TRUE(entry(7)->fallbackNetworkInstance.empty());
    EXPECT_FALSE(traces.has("No entry for 99 in vrfIdToName map"));

    EXPECT_FALSE(toggleOCNhDecapAndFallbackVrfEnabled());
    EXPECT_FALSE(toggleOCNHGContentStreamingTtlTosEnabled());
    EXPECT_FALSE(toggleOCNextHopAftVxlanEncapHeaderEnabled());
    Toggle::directoryIs("/nonexistent");
    Toggle::forgetAll();
    EXPECT_FALSE(toggleOCNhDecapAndFallbackVrfEnabled()) << "read once per process";
}

TEST_F(TogglesOff, UdpHeadersAreExportedWithoutTheirTtl) {
    const auto nextHop = encapsulated({4, 9});
    nextHopIs(7, *nextHop);
    nextHop->gue = Stash::GueEncap{
        2, *Nexo::IpGenAddr::parse("2001:db8::1"), *Nexo::IpGenAddr::parse("2001:db8::2"), 64};
    nextHopIs(8, *nextHop);
    publish();
    start();
    settle();
    EXPECT_EQ(headerTexts(entry(7)->encapHeaders),
              "0 mpls [17, 16]; 1 udpv4 192.0.2.1 192.0.2.2 -");
    EXPECT_EQ(headerTexts(entry(8)->encapHeaders),
              "0 mpls [17, 16]; 1 udpv6 2001:db8::1 2001:db8::2 -");
}

TEST_F(TogglesOff, AVxlanNextHopIsLikeAnyOtherAndVtiChangesMapNothingAgain) {
    const auto nextHop = encapsulated({4});
    nextHop->vxlan = Stash::VxlanEncap{Nexo::IntfId{"vxlan1"}, 100};
    nextHopIs(7, *nextHop);
    publish();
    start();
    settle();
    EXPECT_EQ(headerTexts(entry(7)->encapHeaders), "0 mpls [17, 16]");
    EXPECT_TRUE(sut->vxlanIndexes().nextHopVxlanInfoShadowMap().empty());
    const TestSupport::TraceCapture later;
    const Nexo::IntfId vti{"vxlan1"};
    vtisAre({{{vti, {vti, *Nexo::IpGenAddr::parse("192.0.2.1"), {}, {{100, 10100}}}}}});
    EXPECT_TRUE(sut->backlogEmpty());
    settle();
    EXPECT_THAT(later.texts("PelNexthopMapperSm"), IsEmpty());
}

}  // namespace
}  // namespace Pel::Oc

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>

#include "forwarder/Flatten/test/FlattenBed.h"

namespace Pel::Forwarder {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// Two interfaces, next hops 101 (e1), 102 (e2), 103 (e1), group 200 of 101 and 102, and a route
/// over it.
class FlattenTest : public testing::Test {
protected:
    FlattenTest() {
        bed.link(1, "e1");
        bed.link(2, "e2");
        bed.neighbour(1, "10.0.1.2", 0x12);
        bed.nexthop(101, "10.0.1.2", 1);
        bed.nexthop(102, "10.0.2.2", 2);
        bed.nexthop(103, "10.0.1.3", 1);
        bed.group(200, {{101, 3}, {102, 1}});
        bed.add(FlattenBed::nhidRoute("192.0.2.0/24", 200));
        first = bed.settle();
    }
    FlattenBed bed;
    FlatDiff first;
};

TEST_F(FlattenTest, FecIdIsTheKernelsGroupNumber) {
    EXPECT_EQ(bed.fecOf("192.0.2.0/24"), FecId{200});
    EXPECT_EQ(bed.fecs.at(FecId{200}).programmedId, 200U);
    EXPECT_TRUE(bed.fecs.at(FecId{200}).top);
    EXPECT_THAT(bed.members("192.0.2.0/24"), ElementsAre("10.0.1.2@e1 w3", "10.0.2.2@e2 w1"));
}

TEST_F(FlattenTest, SingleNexthopIsAFecOfItsOwn) {
    bed.add(FlattenBed::nhidRoute("192.0.3.0/24", 101));
    bed.settle();
    EXPECT_EQ(bed.fecOf("192.0.3.0/24"), FecId{101});
    EXPECT_THAT(bed.members("192.0.3.0/24"), ElementsAre("10.0.1.2@e1 w1"));
    EXPECT_NE(bed.index("192.0.3.0/24", "10.0.1.2"), bed.index("192.0.2.0/24", "10.0.1.2"));
}

TEST_F(FlattenTest, OnlyFecsThatARouteUsesArePublished) {
    EXPECT_THAT(bed.fecs, SizeIs(1));
    EXPECT_THAT(bed.nextHops, SizeIs(2));
}

TEST_F(FlattenTest, LastRouteTakesTheFecWithIt) {
    bed.add(FlattenBed::nhidRoute("192.0.3.0/24", 200));
    bed.settle();
    bed.del(FlattenBed::nhidRoute("192.0.2.0/24", 200));
    bed.settle();
    EXPECT_THAT(bed.fecs, SizeIs(1));
    bed.del(FlattenBed::nhidRoute("192.0.3.0/24", 200));
    const FlatDiff diff = bed.settle();
    EXPECT_THAT(diff.routeDeletes, SizeIs(1));
    EXPECT_THAT(diff.fecDeletes, ElementsAre(FecId{200}));
    EXPECT_THAT(diff.nextHopDeletes, SizeIs(2));
    EXPECT_THAT(bed.nextHops, IsEmpty());
}

TEST_F(FlattenTest, GroupEntryIndexIsTheSlot) {
    EXPECT_EQ(bed.nextHops.at(bed.index("192.0.2.0/24", "10.0.1.2")).slot, 0U);
    EXPECT_EQ(bed.nextHops.at(bed.index("192.0.2.0/24", "10.0.2.2")).slot, 1U);
}

TEST_F(FlattenTest, IndexIsNeverZeroAndNeverGivenTwice) {
    const auto old = bed.index("192.0.2.0/24", "10.0.2.2");
    bed.group(200, {{101, 3}});
    bed.settle();
    bed.group(200, {{101, 3}, {102, 1}});
    bed.settle();
    EXPECT_NE(bed.index("192.0.2.0/24", "10.0.2.2"), old);
    EXPECT_FALSE(bed.nextHops.contains(0));
}

TEST_F(FlattenTest, SlotStaysWhenTheOrderOfTheMembersChanges) {
    const auto one = bed.index("192.0.2.0/24", "10.0.1.2");
    bed.group(200, {{102, 1}, {101, 3}});
    const FlatDiff diff = bed.settle();
    EXPECT_TRUE(diff.empty());
    EXPECT_EQ(bed.index("192.0.2.0/24", "10.0.1.2"), one);
}

TEST_F(FlattenTest, SlotStaysWhenANeighbourInTheGroupLeaves) {
    const auto two = bed.index("192.0.2.0/24", "10.0.2.2");
    bed.group(200, {{102, 1}});
    const FlatDiff diff = bed.settle();
    EXPECT_THAT(diff.nextHops, IsEmpty());
    EXPECT_THAT(diff.nextHopDeletes, SizeIs(1));
    EXPECT_EQ(bed.index("192.0.2.0/24", "10.0.2.2"), two);
    EXPECT_EQ(bed.nextHops.at(two).slot, 1U);
}

TEST_F(FlattenTest, SlotStaysWithTheGatewayWhenTheMemberGetsAnotherObject) {
    const auto one = bed.index("192.0.2.0/24", "10.0.1.2");
    bed.nexthop(171, "10.0.1.2", 1);
    bed.group(200, {{171, 3}, {102, 1}});
    EXPECT_TRUE(bed.settle().empty());
    EXPECT_EQ(bed.index("192.0.2.0/24", "10.0.1.2"), one);
}

TEST_F(FlattenTest, TwoNextHopsNeverClaimOneSlotInOneChange) {
    bed.group(200, {{103, 1}});
    const FlatDiff diff = bed.settle();
    ASSERT_THAT(diff.nextHops, SizeIs(1));
    EXPECT_EQ(diff.nextHops[0].slot, 2U);
    bed.group(200, {{103, 1}, {101, 1}});
    const FlatDiff later = bed.settle();
    ASSERT_THAT(later.nextHops, SizeIs(1));
    EXPECT_EQ(later.nextHops[0].slot, 0U);  // free since the last change
}

TEST_F(FlattenTest, MemberNamedTwiceIsOneOfBothWeights) {
    bed.nexthop(171, "10.0.1.2", 1);
    bed.group(200, {{101, 3}, {102, 1}, {171, 4}});
    const FlatDiff diff = bed.settle();
    EXPECT_EQ(diff.size(), 1U);
    EXPECT_THAT(bed.members("192.0.2.0/24"), ElementsAre("10.0.1.2@e1 w7", "10.0.2.2@e2 w1"));
}

TEST_F(FlattenTest, WeightIsContentOfTheFecOnly) {
    bed.group(200, {{101, 65536}, {102, 1}});
    const FlatDiff diff = bed.settle();
    EXPECT_THAT(diff.nextHops, IsEmpty());
    EXPECT_THAT(diff.fecs, SizeIs(1));
    EXPECT_EQ(diff.size(), 1U);
    EXPECT_THAT(bed.members("192.0.2.0/24"), ElementsAre("10.0.1.2@e1 w65536", "10.0.2.2@e2 w1"));
}

TEST_F(FlattenTest, MacIsContentOfTheNextHopOnly) {
    const auto one = bed.index("192.0.2.0/24", "10.0.1.2");
    EXPECT_EQ(bed.nextHops.at(one).mac, (Nexo::EthAddr{{2, 0, 0, 0, 0, 0x12}}));
    bed.neighbour(1, "10.0.1.2", 0x13);
    const FlatDiff diff = bed.settle();
    EXPECT_EQ(diff.size(), 1U);
    ASSERT_THAT(diff.nextHops, SizeIs(1));
    EXPECT_EQ(diff.nextHops[0].index, one);
    EXPECT_EQ(diff.nextHops[0].mac, (Nexo::EthAddr{{2, 0, 0, 0, 0, 0x13}}));
}

TEST_F(FlattenTest, FailedNeighbourTakesTheMacAway) {
    bed.neighbourFailed(1, "10.0.1.2");
    bed.settle();
    EXPECT_EQ(bed.nextHops.at(bed.index("192.0.2.0/24", "10.0.1.2")).mac, std::nullopt);
}

TEST_F(FlattenTest, NeighbourOnAnotherInterfaceIsAnotherNeighbour) {
    bed.neighbour(2, "10.0.1.2", 0x77);
    EXPECT_TRUE(bed.settle().empty());
}

TEST_F(FlattenTest, MemberWhoseLinkIsDownIsHiddenAndComesBackAsItself) {
    const auto two = bed.index("192.0.2.0/24", "10.0.2.2");
    bed.link(2, "e2", false, false);
    const FlatDiff down = bed.settle();
    EXPECT_THAT(down.nextHopDeletes, ElementsAre(two));
    EXPECT_THAT(bed.members("192.0.2.0/24"), ElementsAre("10.0.1.2@e1 w3"));
    bed.link(2, "e2");
    bed.settle();
    EXPECT_EQ(bed.index("192.0.2.0/24", "10.0.2.2"), two);
    EXPECT_THAT(bed.members("192.0.2.0/24"), ElementsAre("10.0.1.2@e1 w3", "10.0.2.2@e2 w1"));
}

TEST_F(FlattenTest, CarrierLossHidesNexthopObjectsButNotPlainPaths) {
    bed.add(FlattenBed::route("192.0.4.0/24", {FlattenBed::path("10.0.2.2", 2)}));
    bed.settle();
    bed.link(2, "e2", true, false);
    bed.settle();
    EXPECT_THAT(bed.members("192.0.2.0/24"), ElementsAre("10.0.1.2@e1 w3"));
    EXPECT_THAT(bed.members("192.0.4.0/24"), ElementsAre("10.0.2.2@e2 w1"));
}

TEST_F(FlattenTest, DeletedLinkHidesItsMembers) {
    bed.fib.linkDel(2);
    bed.settle();
    EXPECT_THAT(bed.members("192.0.2.0/24"), ElementsAre("10.0.1.2@e1 w3"));
}

TEST_F(FlattenTest, RenamedLinkIsContentOfItsNextHops) {
    const auto one = bed.index("192.0.2.0/24", "10.0.1.2");
    bed.link(1, "uplink");
    const FlatDiff diff = bed.settle();
    EXPECT_EQ(diff.size(), 1U);
    EXPECT_EQ(bed.nextHops.at(one).interfaceName, "uplink");
}

TEST_F(FlattenTest, ReplacedNexthopChangesTheGroupsThatNameIt) {
    bed.nexthop(101, "10.0.1.9", 1);
    bed.settle();
    EXPECT_THAT(bed.members("192.0.2.0/24"), ElementsAre("10.0.2.2@e2 w1", "10.0.1.9@e1 w3"));
}

TEST_F(FlattenTest, DeletedNexthopLeavesTheGroupsThatNameIt) {
    bed.fib.nexthopDel(101);
    bed.settle();
    EXPECT_THAT(bed.members("192.0.2.0/24"), ElementsAre("10.0.2.2@e2 w1"));
}

TEST_F(FlattenTest, FecWithoutASourceKeepsItsContentWhileRoutesUseIt) {
    bed.fib.nexthopDel(200);
    EXPECT_TRUE(bed.settle().empty());
    bed.del(FlattenBed::nhidRoute("192.0.2.0/24", 200));
    bed.settle();
    EXPECT_THAT(bed.fecs, IsEmpty());
}

TEST_F(FlattenTest, GroupMayComeBeforeItsMembers) {
    bed.group(300, {{104, 1}, {105, 1}});
    bed.add(FlattenBed::nhidRoute("192.0.5.0/24", 300));
    bed.settle();
    EXPECT_THAT(bed.members("192.0.5.0/24"), IsEmpty());
    bed.nexthop(104, "10.0.1.4", 1);
    bed.settle();
    EXPECT_THAT(bed.members("192.0.5.0/24"), ElementsAre("10.0.1.4@e1 w1"));
}

TEST_F(FlattenTest, RouteWaitsForItsGroup) {
    bed.add(FlattenBed::nhidRoute("192.0.5.0/24", 300));
    EXPECT_TRUE(bed.settle().empty());
    bed.group(300, {{101, 1}});
    bed.settle();
    EXPECT_THAT(bed.members("192.0.5.0/24"), ElementsAre("10.0.1.2@e1 w1"));
}

TEST_F(FlattenTest, RouteThatWaitsKeepsItsOldFec) {
    bed.add(FlattenBed::nhidRoute("192.0.2.0/24", 300));
    EXPECT_TRUE(bed.settle().empty());
    EXPECT_EQ(bed.fecOf("192.0.2.0/24"), FecId{200});
}

TEST_F(FlattenTest, GroupsThatNeverComeLeaveNothingBehind) {
    const std::size_t routes = bed.routes.size();
    for (std::uint32_t id = 1000; id < 1100; ++id) {
        bed.add(FlattenBed::nhidRoute("10.9.0.0/16", id));
        bed.add(FlattenBed::nhidRoute("10.10.0.0/16", id + 1000));
        bed.settle();
        EXPECT_EQ(bed.flatten.waitingRoutes(), 2U);  // for the group named last, not for each
        EXPECT_EQ(bed.flatten.publishedFecs(), bed.fecs.size());
    }
    bed.add(FlattenBed::nhidRoute("10.10.0.0/16", 200));
    bed.settle();
    EXPECT_EQ(bed.flatten.waitingRoutes(), 1U);
    bed.del(FlattenBed::nhidRoute("10.9.0.0/16", 1099));
    bed.del(FlattenBed::nhidRoute("10.10.0.0/16", 200));
    bed.settle();
    EXPECT_EQ(bed.flatten.waitingRoutes(), 0U);
    EXPECT_EQ(bed.fib.routes().size(), routes);
}

TEST_F(FlattenTest, RouteThatWaitedInAVrfThatGoesIsForgotten) {
    bed.vrf(50, "red", 1001);
    Route waiting = FlattenBed::nhidRoute("10.9.0.0/16", 1000);
    waiting.table = 1001;
    bed.add(waiting);
    bed.settle();
    EXPECT_EQ(bed.flatten.waitingRoutes(), 1U);
    bed.fib.linkDel(50);
    bed.settle();
    EXPECT_EQ(bed.flatten.waitingRoutes(), 0U);
    bed.del(waiting);
    bed.settle();
    bed.vrf(50, "red", 1001);
    bed.settle();
    EXPECT_EQ(bed.flatten.waitingRoutes(), 0U);
}

TEST_F(FlattenTest, FdbNexthopIsNoFec) {
    Nexthop fdb;
    fdb.id = 330;
    fdb.fdb = true;
    bed.fib.apply(fdb);
    bed.add(FlattenBed::nhidRoute("192.0.5.0/24", 330));
    EXPECT_TRUE(bed.settle().empty());
}

TEST_F(FlattenTest, BlackholeNexthopHasNoNextHops) {
    bed.blackholeNexthop(320);
    bed.add(FlattenBed::nhidRoute("192.0.5.0/24", 320));
    bed.settle();
    EXPECT_EQ(bed.fecOf("192.0.5.0/24"), FecId{320});
    EXPECT_THAT(bed.members("192.0.5.0/24"), IsEmpty());
}

TEST_F(FlattenTest, BlackholeUnreachableAndProhibitRoutesHaveNoNextHops) {
    int i = 0;
    for (const RouteType type :
         {RouteType::Blackhole, RouteType::Unreachable, RouteType::Prohibit}) {
        Route route = FlattenBed::route("198.51." + std::to_string(i++) + ".0/24", {});
        route.type = type;
        bed.add(route);
    }
    bed.settle();
    for (const char* prefix : {"198.51.0.0/24", "198.51.1.0/24", "198.51.2.0/24"}) {
        EXPECT_EQ(fecKind(bed.fecOf(prefix)), FecKind::memberSet);
        EXPECT_THAT(bed.members(prefix), IsEmpty());
    }
}

TEST_F(FlattenTest, PlainRoutesOfOneMemberSetShareOneAllocatedFec) {
    const auto one = FlattenBed::path("10.0.1.2", 1);
    const auto two = FlattenBed::path("10.0.2.2", 2);
    bed.add(FlattenBed::route("198.51.1.0/24", {one, two}));
    bed.add(FlattenBed::route("198.51.2.0/24", {two, one}));
    bed.add(FlattenBed::route("198.51.3.0/24", {one}));
    bed.settle();
    const FecId fec = bed.fecOf("198.51.1.0/24");
    EXPECT_EQ(fecKind(fec), FecKind::memberSet);
    EXPECT_EQ(bed.fecs.at(fec).programmedId, 0U);
    EXPECT_EQ(bed.fecOf("198.51.2.0/24"), fec);
    EXPECT_NE(bed.fecOf("198.51.3.0/24"), fec);
}

TEST_F(FlattenTest, PlainMemberSetsDifferByWeight) {
    bed.add(FlattenBed::route("198.51.1.0/24", {FlattenBed::path("10.0.1.2", 1, 1)}));
    bed.add(FlattenBed::route("198.51.2.0/24", {FlattenBed::path("10.0.1.2", 1, 2)}));
    bed.settle();
    EXPECT_NE(bed.fecOf("198.51.1.0/24"), bed.fecOf("198.51.2.0/24"));
}

TEST_F(FlattenTest, PlainPathThatTheKernelHoldsDeadIsHiddenInPlace) {
    auto one = FlattenBed::path("10.0.1.2", 1);
    const auto two = FlattenBed::path("10.0.2.2", 2);
    bed.add(FlattenBed::route("198.51.1.0/24", {one, two}));
    bed.settle();
    const FecId fec = bed.fecOf("198.51.1.0/24");
    one.dead = true;
    bed.add(FlattenBed::route("198.51.1.0/24", {one, two}));
    bed.settle();
    EXPECT_EQ(bed.fecOf("198.51.1.0/24"), fec);
    EXPECT_THAT(bed.members("198.51.1.0/24"), ElementsAre("10.0.2.2@e2 w1"));
}

TEST_F(FlattenTest, ConnectedRouteHasANextHopWithoutAddress) {
    Route route = FlattenBed::route("10.0.1.0/24", {FlattenBed::path("", 1)});
    route.protocol = RTPROT_KERNEL;
    bed.add(route);
    bed.settle();
    EXPECT_THAT(bed.members("10.0.1.0/24"), ElementsAre("@e1 w1"));
    EXPECT_EQ(bed.routes.at({"default", route.prefix}).origin, OriginProtocol::directlyConnected);
}

TEST_F(FlattenTest, Ipv4RouteOverIpv6NextHopTakesItsMacFromIpv6) {
    bed.neighbour(1, "fe80::2", 0x66);
    bed.add(FlattenBed::route("198.51.1.0/24", {FlattenBed::path("fe80::2", 1)}));
    bed.settle();
    EXPECT_THAT(bed.members("198.51.1.0/24"), ElementsAre("fe80::2@e1 w1"));
    EXPECT_EQ(bed.nextHops.at(bed.index("198.51.1.0/24", "fe80::2")).mac,
              (Nexo::EthAddr{{2, 0, 0, 0, 0, 0x66}}));
}

TEST_F(FlattenTest, EncapsulationIsPartOfTheMembersIdentity) {
    auto labelled = std::make_shared<Encap>();
    labelled->kind = EncapKind::Mpls;
    labelled->labels = {16001};
    Path path = FlattenBed::path("10.0.1.2", 1);
    path.encap = labelled;
    bed.add(FlattenBed::route("198.51.1.0/24", {FlattenBed::path("10.0.1.2", 1), path}));
    bed.settle();
    EXPECT_THAT(bed.members("198.51.1.0/24"), SizeIs(2));
}

TEST_F(FlattenTest, VlanInterfaceIsShownWithItsParentAndNumber) {
    bed.vlan(3, "e1.100", 1, 100);
    bed.add(FlattenBed::route("198.51.1.0/24", {FlattenBed::path("10.1.0.2", 3)}));
    bed.settle();
    const FlatNextHop& nextHop = bed.nextHops.at(bed.index("198.51.1.0/24", "10.1.0.2"));
    EXPECT_EQ(nextHop.interfaceName, "e1.100");
    EXPECT_EQ(nextHop.parentName, "e1");
    EXPECT_EQ(nextHop.subinterface, 100U);
    bed.link(1, "uplink");
    bed.settle();
    EXPECT_EQ(bed.nextHops.at(bed.index("198.51.1.0/24", "10.1.0.2")).parentName, "uplink");
}

TEST_F(FlattenTest, RouteOfAVrfTableIsPublishedUnderTheVrfsName) {
    Route route = FlattenBed::nhidRoute("192.0.2.0/24", 200);
    route.table = 1001;
    bed.add(route);
    EXPECT_TRUE(bed.settle().empty());  // a table without a VRF device is not exported
    bed.vrf(7, "red", 1001);
    bed.settle();
    EXPECT_EQ(bed.fecOf("192.0.2.0/24", "red"), FecId{200});
    EXPECT_EQ(bed.vrfs, (std::map<std::uint32_t, std::string>{{254, "default"}, {1001, "red"}}));
}

TEST_F(FlattenTest, RenamedVrfMovesItsRoutes) {
    Route route = FlattenBed::nhidRoute("192.0.9.0/24", 101);
    route.table = 1001;
    bed.add(route);
    bed.vrf(7, "red", 1001);
    bed.settle();
    bed.vrf(7, "blue", 1001);
    bed.settle();
    EXPECT_EQ(bed.fecOf("192.0.9.0/24", "red"), FecId{});
    EXPECT_EQ(bed.fecOf("192.0.9.0/24", "blue"), FecId{101});
    EXPECT_EQ(bed.vrfs.at(1001), "blue");
    bed.fib.linkDel(7);
    bed.settle();
    EXPECT_EQ(bed.fecOf("192.0.9.0/24", "blue"), FecId{});
    EXPECT_FALSE(bed.vrfs.contains(1001));
    EXPECT_FALSE(bed.fecs.contains(FecId{101}));
}

TEST_F(FlattenTest, VrfThatChangesItsTableLeavesBeforeItComes) {
    for (const std::uint32_t table : {1001U, 1002U}) {
        Route route = FlattenBed::nhidRoute("192.0.9.0/24", 101);
        route.table = table;
        bed.add(route);
    }
    bed.vrf(7, "red", 1001);
    bed.settle();
    bed.vrf(7, "red", 1002);
    bed.settle();
    EXPECT_EQ(bed.fecOf("192.0.9.0/24", "red"), FecId{101});
    EXPECT_EQ(bed.vrfs, (std::map<std::uint32_t, std::string>{{254, "default"}, {1002, "red"}}));
}

TEST_F(FlattenTest, LowestMetricWinsAndTheNextOneStepsIn) {
    Route worse = FlattenBed::nhidRoute("192.0.2.0/24", 101);
    worse.metric = 50;
    bed.add(worse);
    EXPECT_TRUE(bed.settle().empty());
    bed.del(FlattenBed::nhidRoute("192.0.2.0/24", 200));
    bed.settle();
    EXPECT_EQ(bed.fecOf("192.0.2.0/24"), FecId{101});
    bed.add(FlattenBed::nhidRoute("192.0.2.0/24", 102));
    bed.settle();
    EXPECT_EQ(bed.fecOf("192.0.2.0/24"), FecId{102});
}

TEST_F(FlattenTest, DeleteAndAddBetweenTwoBatchesPublishesNoDelete) {
    bed.del(FlattenBed::nhidRoute("192.0.2.0/24", 200));
    bed.add(FlattenBed::nhidRoute("192.0.2.0/24", 200));
    EXPECT_TRUE(bed.settle().empty());
}

TEST_F(FlattenTest, RepeatedInputChangesNothing) {
    bed.link(1, "e1");
    bed.neighbour(1, "10.0.1.2", 0x12);
    bed.nexthop(101, "10.0.1.2", 1);
    bed.group(200, {{101, 3}, {102, 1}});
    bed.add(FlattenBed::nhidRoute("192.0.2.0/24", 200));
    EXPECT_TRUE(bed.settle().empty());
}

struct OriginCase {
    const char* name;
    std::uint8_t protocol;
    OriginProtocol want;
};
class Origins : public testing::TestWithParam<OriginCase> {};
TEST_P(Origins, FollowTheKernelsProtocol) {
    EXPECT_EQ(originFromKernel(GetParam().protocol, false, false), GetParam().want);
}
constexpr OriginCase kOrigins[] = {{"Kernel", 2, OriginProtocol::local},
                                   {"Boot", 3, OriginProtocol::staticRoute},
                                   {"Static", 4, OriginProtocol::staticRoute},
                                   {"ZebraStatic", 196, OriginProtocol::staticRoute},
                                   {"Bgp", 186, OriginProtocol::bgp},
                                   {"Isis", 187, OriginProtocol::isis},
                                   {"Ospf", 188, OriginProtocol::ospf},
                                   {"Zebra", 11, OriginProtocol::unset},
                                   {"Rip", 189, OriginProtocol::unset}};
INSTANTIATE_TEST_SUITE_P(, Origins, testing::ValuesIn(kOrigins), [](const auto& row) {
    return std::string{row.param.name};
});

TEST(Origin, OspfForIpv6IsOspf3) {
    EXPECT_EQ(originFromKernel(188, false, true), OriginProtocol::ospf3);
}

}  // namespace
}  // namespace Pel::Forwarder

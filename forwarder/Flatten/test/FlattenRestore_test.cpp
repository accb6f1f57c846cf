#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "forwarder/Flatten/test/FlattenBed.h"

namespace Pel::Forwarder {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

void describe(FlattenBed& bed) {
    bed.link(1, "e1");
    bed.link(2, "e2");
    bed.vlan(3, "e1.100", 1, 100);
    bed.vrf(9, "red", 1001);
    bed.neighbour(1, "10.0.1.2", 0x12);
    bed.nexthop(101, "10.0.1.2", 1);
    bed.nexthop(102, "10.0.2.2", 2);
    bed.nexthop(103, "10.1.0.2", 3);
    bed.group(200, {{101, 3}, {102, 1}, {103, 7}});
    bed.add(FlattenBed::nhidRoute("192.0.2.0/24", 200));
    bed.add(FlattenBed::nhidRoute("2001:db8::/32", 200));
    bed.add(FlattenBed::route("198.51.1.0/24",
                              {FlattenBed::path("10.0.1.2", 1), FlattenBed::path("10.0.2.2", 2)}));
    Route red = FlattenBed::nhidRoute("192.0.2.0/24", 101);
    red.table = 1001;
    bed.add(red);
    Route drop = FlattenBed::route("198.51.2.0/24", {});
    drop.type = RouteType::Blackhole;
    bed.add(drop);
}

class Restore : public testing::Test {
protected:
    Restore() {
        describe(before);
        before.settle();
        copyPublished();
    }
    /// The store as the next run finds it.
    void copyPublished() {
        before.restoreInto(after.flatten);
        after.vrfs = before.vrfs;
        after.nextHops = before.nextHops;
        after.fecs = before.fecs;
        after.routes = before.routes;
    }
    FlattenBed before;
    FlattenBed after;
};

TEST_F(Restore, UnchangedFibPublishesNothing) {
    describe(after);
    EXPECT_TRUE(after.settle().empty());
}

TEST_F(Restore, UnchangedFibPublishesNothingInBatchesOfOne) {
    describe(after);
    EXPECT_TRUE(after.settle(1).empty());
}

TEST_F(Restore, MembersInAnotherOrderKeepTheirNumbers) {
    describe(after);
    after.group(200, {{103, 7}, {102, 1}, {101, 3}});
    EXPECT_TRUE(after.settle().empty());
}

TEST_F(Restore, EmptyFibDeletesEverything) {
    after.settle();
    EXPECT_THAT(after.routes, IsEmpty());
    EXPECT_THAT(after.fecs, IsEmpty());
    EXPECT_THAT(after.nextHops, IsEmpty());
    EXPECT_EQ(after.vrfs, (std::map<std::uint32_t, std::string>{{254, "default"}}));
}

TEST_F(Restore, WhatChangedMeanwhileIsTheOnlyChange) {
    describe(after);
    after.neighbour(1, "10.0.1.2", 0x55);               // in three next hops
    after.del(FlattenBed::route("198.51.2.0/24", {}));  // with its FEC
    after.nexthop(104, "10.0.2.4", 2);
    after.group(200, {{101, 3}, {104, 1}, {103, 7}});  // 102 left, 104 came
    const FlatDiff diff = after.settle();
    EXPECT_THAT(diff.nextHops, SizeIs(4));
    EXPECT_THAT(diff.fecs, SizeIs(1));
    EXPECT_THAT(diff.routes, IsEmpty());
    EXPECT_THAT(diff.routeDeletes, SizeIs(1));
    EXPECT_THAT(diff.fecDeletes, SizeIs(1));
    EXPECT_THAT(diff.nextHopDeletes, ElementsAre(before.index("192.0.2.0/24", "10.0.2.2")));
    EXPECT_EQ(after.index("192.0.2.0/24", "10.0.1.2"), before.index("192.0.2.0/24", "10.0.1.2"));
}

TEST_F(Restore, NewNumbersAreBehindTheOldOnes) {
    describe(after);
    after.add(FlattenBed::nhidRoute("192.0.7.0/24", 102));
    after.settle();
    EXPECT_GT(after.index("192.0.7.0/24", "10.0.2.2"), before.nextHops.rbegin()->first);
}

TEST_F(Restore, NumbersOfDeletedNextHopsStayUsed) {
    after.flatten.firstFreeIndexIs(5000);
    describe(after);
    after.add(FlattenBed::nhidRoute("192.0.7.0/24", 102));
    after.settle();
    EXPECT_EQ(after.index("192.0.7.0/24", "10.0.2.2"), 5000U);
}

TEST_F(Restore, NextHopWhoseFecWasNeverWrittenIsDeleted) {
    FlatNextHop orphan;  // the earlier run ended between two batches
    orphan.index = 4000;
    orphan.fecId = FecId{777};
    after.flatten.restore(orphan);
    after.nextHops[orphan.index] = orphan;
    describe(after);
    const FlatDiff diff = after.settle();
    EXPECT_EQ(diff.size(), 1U);
    EXPECT_THAT(diff.nextHopDeletes, ElementsAre(4000U));
}

TEST_F(Restore, SecondNextHopOnOneSlotIsDeleted) {
    FlatNextHop twin = before.nextHops.begin()->second;
    twin.index = 4000;
    after.flatten.restore(twin);
    after.nextHops[twin.index] = twin;
    describe(after);
    EXPECT_THAT(after.settle().nextHopDeletes, ElementsAre(4000U));
}

TEST_F(Restore, RouteOfAnUnknownVrfIsDeleted) {
    FlatRoute route{
        {"gone", *Nexo::IpPrefix::parse("10.0.0.0/8")}, FecId{200}, OriginProtocol::staticRoute};
    after.flatten.restore(route);
    after.routes[route.key] = route;
    describe(after);
    const FlatDiff diff = after.settle();
    EXPECT_EQ(diff.size(), 1U);
    EXPECT_THAT(diff.routeDeletes, ElementsAre(route.key));
}

TEST_F(Restore, MemberThatWasHiddenKeepsItsFecsIdentity) {
    before.link(2, "e2", false, false);
    before.settle();
    FlattenBed third;
    before.restoreInto(third.flatten);
    third.nextHops = before.nextHops;
    third.fecs = before.fecs;
    third.routes = before.routes;
    third.vrfs = before.vrfs;
    describe(third);
    third.link(2, "e2", false, false);
    EXPECT_TRUE(third.settle().empty());
}

using Step = std::function<void(FlattenBed&)>;

Step randomStep(std::mt19937& random) {
    const auto link = static_cast<std::uint32_t>(1 + random() % 3);
    const auto id = static_cast<std::uint32_t>(101 + random() % 6);
    const auto other = static_cast<std::uint32_t>(101 + random() % 6);
    const auto groupId = static_cast<std::uint32_t>(200 + random() % 4);
    const auto byte = static_cast<std::uint8_t>(random());
    const std::string gateway = "10.0.0." + std::to_string(1 + random() % 5);
    const std::string prefix = "192.0." + std::to_string(random() % 8) + ".0/24";
    const bool yes = random() % 2 == 0;
    switch (random() % 8) {
        case 0:
            return [=](FlattenBed& bed) {
                bed.link(link, "e" + std::to_string(link), yes || byte > 80, yes || byte > 40);
            };
        case 1:
            return [=](FlattenBed& bed) { bed.neighbour(link, gateway, byte); };
        case 2:
            return [=](FlattenBed& bed) { bed.nexthop(id, gateway, link); };
        case 3:
            return [=](FlattenBed& bed) { bed.fib.nexthopDel(yes ? id : groupId); };
        case 4:
            return [=](FlattenBed& bed) { bed.group(groupId, {{id, 1U + byte % 3U}, {other, 1}}); };
        case 5:
            return [=](FlattenBed& bed) {
                bed.add(FlattenBed::nhidRoute(prefix, yes ? id : groupId));
            };
        case 6:
            return [=](FlattenBed& bed) {
                bed.add(FlattenBed::route(prefix, {FlattenBed::path(gateway, link)}));
            };
        default:
            return [=](FlattenBed& bed) { bed.del(FlattenBed::route(prefix, {})); };
    }
}

/// Random changes, collected now and then in small batches. The bed checks each batch for dangling
/// references. At the end each published next hop is listed by its FEC exactly once, and a run that
/// starts from what is published and hears the same story publishes nothing.
TEST(FlattenRandom, NeverDanglesAndRestartsSilently) {
    for (unsigned seed = 1; seed <= 200; ++seed) {
        std::mt19937 random{seed};
        FlattenBed bed;
        std::vector<Step> story;
        for (int i = 0; i < 300; ++i) {
            story.push_back(randomStep(random));
            story.back()(bed);
            if (random() % 9 == 0) { bed.settle(1 + random() % 7); }
        }
        bed.settle();
        EXPECT_EQ(bed.flatten.publishedFecs(), bed.fecs.size());
        EXPECT_EQ(bed.flatten.publishedRoutes(), bed.routes.size());
        for (const auto& [index, nextHop] : bed.nextHops) {
            ASSERT_TRUE(bed.fecs.contains(nextHop.fecId)) << "seed " << seed;
            const auto& members = bed.fecs.at(nextHop.fecId).members;
            EXPECT_EQ(std::count_if(members.begin(),
                                    members.end(),
                                    [i = index](const FlatMember& m) { return m.index == i; }),
                      1)
                << "seed " << seed;
        }
        FlattenBed next;
        bed.restoreInto(next.flatten);
        for (const Step& step : story) { step(next); }
        const FlatDiff diff = next.settle(1 + random() % 50);
        EXPECT_TRUE(diff.empty()) << "seed " << seed << ": " << diff.size() << " changes";
    }
}

}  // namespace
}  // namespace Pel::Forwarder

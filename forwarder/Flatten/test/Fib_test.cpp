#include "forwarder/Flatten/Fib.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "forwarder/Flatten/test/FlattenBed.h"

namespace Pel::Forwarder {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class FibTest : public testing::Test {
protected:
    FibTest() {
        bed.link(1, "e1");
        bed.link(2, "e2");
    }
    void sweep(FibPart part, std::size_t slice = 1) {
        for (bool more = true; more;) {
            std::size_t budget = slice;
            more = bed.fib.sweep(part, budget);
        }
    }
    FlattenBed bed;
    Path one = FlattenBed::path("10.0.1.2", 1);
    Path two = FlattenBed::path("10.0.2.2", 2);
    Path six = FlattenBed::path("2001:db8::1", 1);
    Path seven = FlattenBed::path("2001:db8::2", 2);
};

TEST_F(FibTest, SweepRemovesWhatADumpDidNotMention) {
    bed.nexthop(101, "10.0.1.2", 1);
    bed.nexthop(102, "10.0.2.2", 2);
    bed.neighbour(1, "10.0.1.2", 1);
    bed.neighbour(2, "10.0.2.2", 2);
    bed.add(FlattenBed::nhidRoute("192.0.1.0/24", 101));
    bed.add(FlattenBed::nhidRoute("192.0.2.0/24", 102));
    bed.add(FlattenBed::nhidRoute("2001:db8::/32", 102));
    bed.settle();
    for (const FibPart part : {FibPart::Neighbours, FibPart::Nexthops, FibPart::RoutesV4}) {
        bed.fib.beginDump(part);
    }
    bed.nexthop(102, "10.0.2.2", 2);
    bed.neighbour(2, "10.0.2.2", 2);
    bed.add(FlattenBed::nhidRoute("192.0.2.0/24", 102), RouteMode::Dump);
    for (const FibPart part : {FibPart::Neighbours, FibPart::Nexthops, FibPart::RoutesV4}) {
        sweep(part);
    }
    bed.settle();
    EXPECT_EQ(bed.fib.nexthopCount(), 1U);
    EXPECT_EQ(bed.fib.neighbourCount(), 1U);
    EXPECT_THAT(bed.routes, SizeIs(2));  // the other family was not dumped
    EXPECT_EQ(bed.fecOf("192.0.1.0/24"), FecId{});
    EXPECT_EQ(bed.fecOf("2001:db8::/32"), FecId{102});
}

TEST_F(FibTest, SweepRemovesLinks) {
    bed.fib.beginDump(FibPart::Links);
    bed.link(2, "e2");
    sweep(FibPart::Links);
    EXPECT_EQ(bed.fib.link(1), nullptr);
    EXPECT_NE(bed.fib.link(2), nullptr);
}

TEST_F(FibTest, SweepRemovesHiddenMetricsAndLetsOthersStepIn) {
    Route worse = FlattenBed::route("192.0.2.0/24", {two});
    worse.metric = 10;
    Route worst = FlattenBed::route("192.0.2.0/24", {one, two});
    worst.metric = 20;
    bed.add(FlattenBed::route("192.0.2.0/24", {one}));
    bed.add(worse);
    bed.add(worst);
    bed.settle();
    bed.fib.beginDump(FibPart::RoutesV4);
    bed.add(worst, RouteMode::Dump);
    sweep(FibPart::RoutesV4);
    bed.settle();
    EXPECT_THAT(bed.members("192.0.2.0/24"), SizeIs(2));
    bed.del(worst);
    bed.settle();
    EXPECT_THAT(bed.routes, IsEmpty());
}

TEST_F(FibTest, WhatArrivesDuringADumpIsNotSwept) {
    bed.fib.beginDump(FibPart::RoutesV4);
    bed.add(FlattenBed::route("192.0.2.0/24", {one}), RouteMode::Add);
    sweep(FibPart::RoutesV4);
    bed.settle();
    EXPECT_THAT(bed.routes, SizeIs(1));
}

TEST_F(FibTest, Ipv6MultipathGrowsAndShrinksPathByPath) {
    bed.add(FlattenBed::route("2001:db8:9::/48", {six}), RouteMode::Add);
    bed.add(FlattenBed::route("2001:db8:9::/48", {seven}), RouteMode::Append);
    bed.settle();
    EXPECT_THAT(bed.members("2001:db8:9::/48"),
                ElementsAre("2001:db8::1@e1 w1", "2001:db8::2@e2 w1"));
    bed.del(FlattenBed::route("2001:db8:9::/48", {six}));
    bed.settle();
    EXPECT_THAT(bed.members("2001:db8:9::/48"), ElementsAre("2001:db8::2@e2 w1"));
    bed.del(FlattenBed::route("2001:db8:9::/48", {seven}));
    bed.settle();
    EXPECT_THAT(bed.routes, IsEmpty());
}

TEST_F(FibTest, Ipv4TwinIsHiddenAndADeletionAsksForANewDump) {
    bed.fib.beginDump(FibPart::RoutesV4);
    bed.add(FlattenBed::route("192.0.2.0/24", {one}), RouteMode::Dump);
    bed.add(FlattenBed::route("192.0.2.0/24", {two}), RouteMode::Dump);
    bed.settle();
    EXPECT_THAT(bed.members("192.0.2.0/24"), ElementsAre("10.0.1.2@e1 w1"));
    EXPECT_FALSE(bed.fib.takeRoutesUncertain());
    bed.del(FlattenBed::route("192.0.2.0/24", {one}));
    EXPECT_TRUE(bed.fib.takeRoutesUncertain());
    EXPECT_FALSE(bed.fib.takeRoutesUncertain());
}

TEST_F(FibTest, DeletionWithoutATwinIsCertain) {
    bed.fib.beginDump(FibPart::RoutesV4);
    bed.add(FlattenBed::route("192.0.2.0/24", {one}), RouteMode::Dump);
    bed.del(FlattenBed::route("192.0.2.0/24", {one}));
    EXPECT_FALSE(bed.fib.takeRoutesUncertain());
}

struct KeptCase {
    const char* name;
    const char* prefix;
    RouteType type;
    std::uint32_t table;
    bool cloned, sourceOrTos, kept;
};
class KeptRoutes : public testing::TestWithParam<KeptCase> {};
TEST_P(KeptRoutes, AreThoseThatForward) {
    const KeptCase& c = GetParam();
    FlattenBed bed;
    bed.link(1, "e1");
    Route route = FlattenBed::route(c.prefix, {FlattenBed::path("", 1)});
    route.type = c.type;
    route.table = c.table;
    route.cloned = c.cloned;
    route.sourceOrTos = c.sourceOrTos;
    bed.add(route);
    bed.settle();
    EXPECT_EQ(bed.routes.size(), c.kept ? 1U : 0U);
}
constexpr KeptCase kKept[] = {
    {"Unicast", "10.0.0.0/8", RouteType::Unicast, 254, false, false, true},
    {"Blackhole", "10.0.0.0/8", RouteType::Blackhole, 254, false, false, true},
    {"Unreachable", "10.0.0.0/8", RouteType::Unreachable, 254, false, false, true},
    {"Prohibit", "10.0.0.0/8", RouteType::Prohibit, 254, false, false, true},
    {"LocalOrBroadcast", "10.0.0.0/8", RouteType::Other, 254, false, false, false},
    {"LocalTable", "10.0.0.0/8", RouteType::Unicast, 255, false, false, false},
    {"NoTable", "10.0.0.0/8", RouteType::Unicast, 0, false, false, false},
    {"TableWithoutVrf", "10.0.0.0/8", RouteType::Unicast, 100, false, false, false},
    {"CacheEntry", "10.0.0.0/8", RouteType::Unicast, 254, true, false, false},
    {"BySourceOrTos", "10.0.0.0/8", RouteType::Unicast, 254, false, true, false},
    {"LinkLocal", "fe80::/64", RouteType::Unicast, 254, false, false, false},
    {"EndOfLinkLocal", "febf::/16", RouteType::Unicast, 254, false, false, false},
    {"BehindLinkLocal", "fec0::/16", RouteType::Unicast, 254, false, false, true},
    {"WiderThanLinkLocal", "fe80::/9", RouteType::Unicast, 254, false, false, true},
    {"DefaultV6", "::/0", RouteType::Unicast, 254, false, false, true},
};
INSTANTIATE_TEST_SUITE_P(, KeptRoutes, testing::ValuesIn(kKept), [](const auto& row) {
    return std::string{row.param.name};
});

TEST(AdjacencyTable, NumbersAreSharedCountedAndReused) {
    AdjacencyTable table;
    const AdjacencyKey key{1, *Nexo::IpGenAddr::parse("10.0.0.1"), nullptr};
    const AdjacencyId id = table.acquire(key);
    EXPECT_EQ(table.acquire(key), id);
    table.release(id);
    EXPECT_EQ(table.size(), 1U);
    table.release(id);
    EXPECT_EQ(table.size(), 0U);
    EXPECT_EQ(table.acquire(AdjacencyKey{2, {}, nullptr}), id);
}

TEST(PathSetTable, NumberDependsOnContentAlone) {
    AdjacencyTable adjacencies;
    AdjacencyTable others;
    others.acquire(AdjacencyKey{9, {}, nullptr});  // shifts the numbers of the second table
    PathSetTable first{adjacencies};
    PathSetTable second{others};
    const std::vector<Path> paths{FlattenBed::path("10.0.0.1", 1),
                                  FlattenBed::path("10.0.0.2", 2, 5)};
    const std::vector<Path> reversed{paths[1], paths[0]};
    EXPECT_EQ(first.acquire(paths).id, second.acquire(reversed).id);
}

TEST(PathSetTable, LastUserFreesTheSetAndItsAdjacencies) {
    AdjacencyTable adjacencies;
    PathSetTable sets{adjacencies};
    const std::vector<Path> paths{FlattenBed::path("10.0.0.1", 1)};
    const FecId id = sets.acquire(paths).id;
    sets.acquire(paths);
    sets.release(id);
    EXPECT_NE(sets.find(id), nullptr);
    sets.release(id);
    EXPECT_EQ(sets.find(id), nullptr);
    EXPECT_EQ(adjacencies.size(), 0U);
}

}  // namespace
}  // namespace Pel::Forwarder

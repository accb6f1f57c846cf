#include "forwarder/Flatten/MemberCounters.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "forwarder/Flatten/test/FlattenBed.h"

namespace Pel::Forwarder {
namespace {

using Counts = std::vector<std::pair<std::uint32_t, std::uint64_t>>;  // nexthop id, packets

constexpr const char* kPrefix = "192.0.2.0/24";
constexpr std::uint32_t kGroup = 200;
constexpr std::uint32_t kVti = 10;

/// Group 200 of the nexthops 101 (10.0.0.1), 102 and 103, in use by a route; and what a store would hold.
class MemberCountersTest : public testing::Test {
protected:
    MemberCountersTest() {
        bed.link(1, "e1");
        for (const std::uint32_t n : {1, 2, 3}) {
            bed.nexthop(100 + n, "10.0.0." + std::to_string(n), 1);
        }
        bed.group(kGroup, {{101, 1}, {102, 1}, {103, 1}});
        bed.add(FlattenBed::nhidRoute(kPrefix, kGroup));
        bed.settle();
    }
    OcNextHopNumber hop(int n, const char* prefix = kPrefix) {
        return bed.index(prefix, "10.0.0." + std::to_string(n));
    }
    static Nexthop group(std::uint32_t id, const Counts& counts) {
        Nexthop nexthop;
        nexthop.id = id;
        nexthop.isGroup = nexthop.hasStatistics = true;
        for (const auto& [member, packets] : counts) {
            nexthop.group.push_back({member, 1, packets});
        }
        return nexthop;
    }
    /// A complete poll, published as CounterPublish would. The next hops that had something to publish.
    std::vector<OcNextHopNumber> poll(const std::map<std::uint32_t, Counts>& groups,
                                      const std::vector<VniCount>& vnis = {}) {
        counters->beginPoll();
        for (const VniCount& count : vnis) { counters->apply(kVti, count); }
        for (const auto& [id, counts] : groups) { counters->apply(group(id, counts)); }
        for (std::size_t budget = 1; counters->forget(budget); budget = 1) {}
        return publish();
    }
    std::vector<OcNextHopNumber> publish() {
        std::vector<OcNextHopNumber> changed;
        while (const auto nextHop = counters->takeChanged()) {
            changed.push_back(*nextHop);
            if (counters->wantsPublished(*nextHop)) {
                counters->publishedIs(*nextHop, store[*nextHop]);
            }
            store[*nextHop] = counters->traffic(*nextHop).value_or(CountedTraffic{});
        }
        return changed;
    }
    /// Another run of the forwarder: of this one only the store is left.
    void restart() { counters.emplace(bed.fib, bed.flatten); }
    std::uint64_t packets(int n) { return store[hop(n)].traffic.packets; }

    FlattenBed bed;
    std::map<OcNextHopNumber, CountedTraffic> store;
    std::optional<MemberCounters> counters{std::in_place, bed.fib, bed.flatten};
};

TEST_F(MemberCountersTest, PacketsOfAMemberAreThoseOfItsNextHop) {
    poll({{kGroup, {{101, 5}, {102, 7}, {103, 0}}}});
    EXPECT_EQ(packets(1), 5U);
    EXPECT_EQ(packets(2), 7U);
    EXPECT_FALSE(store.contains(hop(3))) << "nothing was counted";
    EXPECT_EQ(store[hop(1)].traffic.octets, 0U) << "groups count packets only";
}

TEST_F(MemberCountersTest, OnlyWhatChangedIsNamed) {
    const Counts before{{101, 5}, {102, 7}, {103, 0}};
    EXPECT_EQ(poll({{kGroup, before}}), (std::vector{hop(1), hop(2)}));
    EXPECT_TRUE(poll({{kGroup, before}}).empty());
    EXPECT_EQ(poll({{kGroup, {{101, 5}, {102, 8}, {103, 0}}}}), std::vector{hop(2)});
}

TEST_F(MemberCountersTest, CountsOnWhenTheGroupIsReplacedAndBeginsAtZero) {
    poll({{kGroup, {{101, 100}, {102, 7}, {103, 0}}}});
    poll({{kGroup, {{101, 4}, {102, 0}, {103, 0}}}});
    EXPECT_EQ(packets(1), 104U);
    EXPECT_EQ(packets(2), 7U);
    poll({{kGroup, {{101, 1}, {102, 1}, {103, 0}}}});
    EXPECT_EQ(packets(1), 105U);
    EXPECT_EQ(packets(2), 8U);
}

TEST_F(MemberCountersTest, OfTwoGroupsEachCountsItsOwnMember) {
    bed.group(201, {{101, 1}, {102, 1}});
    bed.add(FlattenBed::nhidRoute("198.51.100.0/24", 201));
    bed.settle();
    poll({{kGroup, {{101, 5}, {102, 0}, {103, 0}}}, {201, {{101, 9}, {102, 0}}}});
    EXPECT_EQ(packets(1), 5U);
    EXPECT_EQ(store[hop(1, "198.51.100.0/24")].traffic.packets, 9U);
}

TEST_F(MemberCountersTest, MembersWithOneGatewayAreAddedUpAndAreNotLostWhenOneOfThemLeaves) {
    bed.nexthop(104, "10.0.0.1", 1);
    bed.group(kGroup, {{101, 1}, {104, 1}});
    bed.settle();
    poll({{kGroup, {{101, 5}, {104, 6}}}});
    EXPECT_EQ(packets(1), 11U);
    bed.group(kGroup, {{104, 1}});
    bed.settle();
    poll({{kGroup, {{104, 8}}}});
    EXPECT_EQ(packets(1), 13U);
}

TEST_F(MemberCountersTest, AMemberThatLeftIsForgottenAndTheOthersCountOn) {
    poll({{kGroup, {{101, 5}, {102, 7}, {103, 1}}}});
    EXPECT_EQ(counters->size(), 3U);
    bed.group(kGroup, {{101, 1}, {103, 1}});
    bed.settle();
    poll({{kGroup, {{101, 6}, {103, 1}}}});
    EXPECT_EQ(packets(1), 6U);
    EXPECT_EQ(counters->size(), 2U);
}

TEST_F(MemberCountersTest, WhatAPollDoesNotMentionStaysUntilOneIsComplete) {
    poll({{kGroup, {{101, 5}, {102, 7}, {103, 1}}}});
    counters->beginPoll();  // interrupted
    EXPECT_EQ(counters->size(), 3U);
    poll({{kGroup, {{101, 2}, {102, 7}, {103, 1}}}});
    EXPECT_EQ(packets(1), 7U);
}

TEST_F(MemberCountersTest, WhatIsNotPublishedIsPassedOver) {
    EXPECT_TRUE(poll({{kGroup, {{999, 5}}}, {201, {{101, 5}}}}).empty());
    bed.link(1, "e1", false);
    bed.settle();
    EXPECT_TRUE(poll({{kGroup, {{101, 5}, {102, 5}, {103, 5}}}}).empty());
    Nexthop silent = group(kGroup, {{101, 5}});
    silent.hasStatistics = false;
    bed.link(1, "e1", true);
    bed.settle();
    counters->beginPoll();
    counters->apply(silent);
    EXPECT_TRUE(publish().empty());
}

TEST_F(MemberCountersTest, WhatCouldNotBePublishedIsNamedAgainByTheNextPoll) {
    const Counts counts{{101, 5}, {102, 0}, {103, 0}};
    counters->beginPoll();
    counters->apply(group(kGroup, counts));
    EXPECT_EQ(counters->takeChanged(), hop(1));
    counters->notPublished(hop(1));
    EXPECT_EQ(counters->takeChanged(), std::nullopt);
    EXPECT_EQ(poll({{kGroup, counts}}), std::vector{hop(1)});
    EXPECT_TRUE(poll({{kGroup, counts}}).empty());
}

// After a restart of the forwarder

TEST_F(MemberCountersTest, ARestartGoesOnWithTheKernelsCounts) {
    poll({{kGroup, {{101, 100}, {102, 7}, {103, 0}}}});
    restart();
    poll({{kGroup, {{101, 150}, {102, 7}, {103, 0}}}});
    EXPECT_EQ(packets(1), 150U);
    EXPECT_EQ(packets(2), 7U);
}

TEST_F(MemberCountersTest, WhatWasMadeUpForBeforeARestartStaysMadeUpFor) {
    poll({{kGroup, {{101, 100}, {102, 0}, {103, 0}}}});
    poll({{kGroup, {{101, 20}, {102, 0}, {103, 0}}}});
    restart();
    poll({{kGroup, {{101, 25}, {102, 0}, {103, 0}}}});
    EXPECT_EQ(packets(1), 125U);
}

TEST_F(MemberCountersTest, AGroupReplacedWhileNobodyLookedCountsOnFromWhatIsPublished) {
    poll({{kGroup, {{101, 100}, {102, 0}, {103, 0}}}});
    restart();
    poll({{kGroup, {{101, 30}, {102, 0}, {103, 0}}}});
    EXPECT_EQ(packets(1), 130U);
    poll({{kGroup, {{101, 31}, {102, 0}, {103, 0}}}});
    EXPECT_EQ(packets(1), 131U);
}

TEST_F(MemberCountersTest, AGroupReplacedBetweenTheFirstPollsOfARunLosesNothing) {
    poll({{kGroup, {{101, 100}, {102, 0}, {103, 0}}}});
    restart();
    counters->beginPoll();
    counters->apply(group(kGroup, {{101, 150}}));
    counters->beginPoll();  // nothing has been published yet
    counters->apply(group(kGroup, {{101, 3}}));
    publish();
    EXPECT_EQ(packets(1), 153U);
}

TEST_F(MemberCountersTest, WrapsAtTheEndOfTheNumbers) {
    const std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    poll({{kGroup, {{101, most - 1}, {102, 0}, {103, 0}}}});
    EXPECT_EQ(packets(1), most - 1);
    poll({{kGroup, {{101, 4}, {102, 0}, {103, 0}}}});  // the group was replaced
    EXPECT_EQ(packets(1), 2U);
    restart();
    poll({{kGroup, {{101, 5}, {102, 0}, {103, 0}}}});
    EXPECT_EQ(packets(1), 3U);
}

// Octets

/// Besides: nexthop 301, over VNI 5001 of a device with a filter, in group 300 behind a route of its own.
class VniOctetsTest : public MemberCountersTest {
protected:
    VniOctetsTest() {
        Link vti = FlattenBed::vxlan(kVti, "vxb", 0);
        vti.vniFilter = true;
        bed.fib.apply(vti);
        tunnel(301, 5001);
        bed.group(300, {{301, 1}});
        bed.add(FlattenBed::nhidRoute(kTunnelPrefix, 300));
        bed.settle();
    }
    void tunnel(std::uint32_t id, std::uint32_t vni) {
        Nexthop nexthop;
        nexthop.id = id;
        nexthop.path =
            FlattenBed::tunnel("10.50.0.2", kVti, vni, "10.0.1." + std::to_string(id % 100));
        bed.fib.apply(nexthop);
    }
    OcNextHopNumber tunnelHop() { return bed.index(kTunnelPrefix, "10.0.1.1"); }
    Traffic traffic() { return store[tunnelHop()].traffic; }
    std::vector<OcNextHopNumber> pollTunnel(std::uint64_t packets, const VniCount& vni) {
        return poll({{300, {{301, packets}}}}, {vni});
    }
    static constexpr const char* kTunnelPrefix = "198.51.100.0/24";
};

TEST_F(VniOctetsTest, AreThoseOfTheVniWhenItsPacketsAreTheMembers) {
    pollTunnel(3, {5001, 3, 426});
    EXPECT_EQ(traffic(), (Traffic{3, 426}));
    pollTunnel(4, {5001, 5, 710});  // the dumps are not of one moment
    EXPECT_EQ(traffic(), (Traffic{4, 710}));
    EXPECT_EQ(pollTunnel(4, {5001, 6, 852}), std::vector{tunnelHop()}) << "octets alone";
}

TEST_F(VniOctetsTest, CountFromTheFirstSightWhenTheVniHasSentMoreThanTheMember) {
    pollTunnel(3, {5001, 1003, 142'426});
    EXPECT_EQ(traffic(), (Traffic{3, 0}));
    pollTunnel(5, {5001, 1005, 142'710});
    EXPECT_EQ(traffic(), (Traffic{5, 284}));
}

TEST_F(VniOctetsTest, CountOnWhenTheVniBeginsAtZero) {
    pollTunnel(3, {5001, 3, 426});
    pollTunnel(4, {5001, 1, 142});
    EXPECT_EQ(traffic(), (Traffic{4, 568}));
}

TEST_F(VniOctetsTest, GoOnAfterARestart) {
    pollTunnel(3, {5001, 1003, 142'426});
    pollTunnel(5, {5001, 1005, 142'710});
    restart();
    pollTunnel(6, {5001, 1006, 142'852});
    EXPECT_EQ(traffic(), (Traffic{6, 426}));
    restart();
    pollTunnel(7, {5001, 1, 142});  // the device is another one
    EXPECT_EQ(traffic(), (Traffic{7, 568}));
}

TEST_F(VniOctetsTest, AreUnknownWhileAnotherNextHopNamesTheVni) {
    pollTunnel(3, {5001, 3, 426});
    tunnel(302, 5001);
    bed.group(300, {{301, 1}, {302, 1}});
    bed.settle();
    poll({{300, {{301, 4}, {302, 1}}}}, {{5001, 5, 710}});
    EXPECT_EQ(traffic(), (Traffic{4, 0}));
    bed.group(300, {{301, 1}});
    bed.settle();
    pollTunnel(5, {5001, 6, 852});
    EXPECT_EQ(traffic(), (Traffic{5, 0}));
    pollTunnel(6, {5001, 7, 994});
    EXPECT_EQ(traffic(), (Traffic{6, 142}));
}

TEST_F(VniOctetsTest, AreNotTakenFromAnotherVniOrDevice) {
    pollTunnel(3, {5002, 3, 426});
    EXPECT_EQ(traffic(), (Traffic{3, 0}));
    counters->beginPoll();
    counters->apply(kVti + 1, {5001, 4, 568});
    counters->apply(group(300, {{301, 4}}));
    publish();
    EXPECT_EQ(traffic(), (Traffic{4, 0}));
}

}  // namespace
}  // namespace Pel::Forwarder

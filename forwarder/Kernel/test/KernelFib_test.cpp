#include "forwarder/Kernel/KernelFib.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <memory>
#include <utility>

#include "forwarder/Kernel/test/KernelFibFixture.h"

namespace Pel::Forwarder {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(KernelFibTest, DumpFindsWhatWasThereBefore) {
    net->run("ip nexthop add id 101 via 10.0.1.2 dev e1");
    net->run("ip nexthop add id 102 via 10.0.2.2 dev e2");
    net->run("ip nexthop add id 200 group 101,3/102,1");
    net->run("ip route add 192.0.2.0/24 nhid 200 proto bgp");
    start();
    awaitMembers("192.0.2.0/24", {"10.0.1.2@e1 w3", "10.0.2.2@e2 w1"});
    EXPECT_EQ(bed.fecOf("192.0.2.0/24"), FecId{200});
    EXPECT_EQ(bed.routes.at({"default", *Nexo::IpPrefix::parse("192.0.2.0/24")}).origin,
              OriginProtocol::bgp);
    EXPECT_EQ(bed.nextHops.at(bed.index("192.0.2.0/24", "10.0.1.2")).mac,
              (Nexo::EthAddr{{2, 0, 0, 0, 0, 0x12}}));
    EXPECT_THAT(bed.members("10.0.1.0/24"), ElementsAre("@e1 w1"));
    EXPECT_EQ(bed.routes.at({"default", *Nexo::IpPrefix::parse("10.0.1.0/24")}).origin,
              OriginProtocol::directlyConnected);
    EXPECT_THAT(bed.members("2001:db8:1::/64"), ElementsAre("@e1 w1"));
    for (const auto& [key, route] : bed.routes) {
        EXPECT_NE(key.prefix.length(), key.prefix.address().width() * 8)
            << key.prefix.stringValue();  // no host's own
    }
}

TEST_F(KernelFibTest, DumpFindsTheSameWhenItYieldsAtEachStep) {
    net->run("ip route add 192.0.2.0/24 nexthop via 10.0.1.2 nexthop via 10.0.2.2");
    yields = true;
    start();
    awaitMembers("192.0.2.0/24", {"10.0.1.2@e1 w1", "10.0.2.2@e2 w1"});
}

TEST_F(KernelFibTest, FollowsNexthopObjectsAndGroups) {
    start();
    net->run("ip nexthop add id 101 via 10.0.1.2 dev e1");
    net->run("ip nexthop add id 102 via 10.0.2.2 dev e2");
    net->run("ip nexthop add id 200 group 101/102");
    net->run("ip route add 192.0.2.0/24 nhid 200");
    awaitMembers("192.0.2.0/24", {"10.0.1.2@e1 w1", "10.0.2.2@e2 w1"});
    const auto one = bed.index("192.0.2.0/24", "10.0.1.2");
    net->run("ip nexthop replace id 200 group 101,200/102,5");
    awaitMembers("192.0.2.0/24", {"10.0.1.2@e1 w200", "10.0.2.2@e2 w5"});
    net->run("ip nexthop replace id 102 via 10.0.2.3 dev e2");
    awaitMembers("192.0.2.0/24", {"10.0.1.2@e1 w200", "10.0.2.3@e2 w5"});
    EXPECT_EQ(bed.index("192.0.2.0/24", "10.0.1.2"), one);
}

TEST_F(KernelFibTest, Ipv4RouteOverIpv6NextHop) {
    net->run("ip -6 neigh replace fe80::2 lladdr 02:00:00:00:00:66 dev e1 nud permanent");
    start();
    net->run("ip route add 192.0.2.0/24 via inet6 fe80::2 dev e1");
    awaitMembers("192.0.2.0/24", {"fe80::2@e1 w1"});
    EXPECT_EQ(bed.nextHops.at(bed.index("192.0.2.0/24", "fe80::2")).mac,
              (Nexo::EthAddr{{2, 0, 0, 0, 0, 0x66}}));
}

TEST_F(KernelFibTest, BlackholeRouteHasNoNextHops) {
    start();
    net->run("ip route add blackhole 192.0.2.0/24; ip -6 route add unreachable 2001:db8:9::/48");
    awaitMembers("192.0.2.0/24", {});
    awaitMembers("2001:db8:9::/48", {});
}

TEST_F(KernelFibTest, PlainMultipathKeepsItsFecWhileALinkIsDown) {
    start();
    net->run("ip route add 192.0.2.0/24 nexthop via 10.0.1.2 weight 2 nexthop via 10.0.2.2");
    awaitMembers("192.0.2.0/24", {"10.0.1.2@e1 w2", "10.0.2.2@e2 w1"});
    const FecId fec = bed.fecOf("192.0.2.0/24");
    net->run("ip link set e2 down");
    awaitMembers("192.0.2.0/24", {"10.0.1.2@e1 w2"});
    net->run("ip link set e2 up");
    awaitMembers("192.0.2.0/24", {"10.0.1.2@e1 w2", "10.0.2.2@e2 w1"});
    EXPECT_EQ(bed.fecOf("192.0.2.0/24"), fec);
}

TEST_F(KernelFibTest, Ipv6MultipathGrowsAndShrinks) {
    start();
    net->run("ip -6 route add 2001:db8:9::/48 via 2001:db8:1::2");
    net->run("ip -6 route append 2001:db8:9::/48 via 2001:db8:2::2");
    awaitMembers("2001:db8:9::/48", {"2001:db8:1::2@e1 w1", "2001:db8:2::2@e2 w1"});
    net->run("ip -6 route del 2001:db8:9::/48 via 2001:db8:1::2");
    awaitMembers("2001:db8:9::/48", {"2001:db8:2::2@e2 w1"});
    net->run("ip -6 route del 2001:db8:9::/48");
    awaitMembers("2001:db8:9::/48", {"none"});
}

TEST_F(KernelFibTest, HiddenTwinComesToLightWhenTheFirstGoes) {
    start();
    net->run("ip route add 192.0.2.0/24 via 10.0.1.2");
    net->run("ip route append 192.0.2.0/24 via 10.0.2.2");
    awaitMembers("192.0.2.0/24", {"10.0.1.2@e1 w1"});
    net->run("ip route del 192.0.2.0/24 via 10.0.1.2");
    awaitMembers("192.0.2.0/24", {"10.0.2.2@e2 w1"});
}

TEST_F(KernelFibTest, MetricDecidesAndTheNextOneStepsIn) {
    start();
    net->run("ip route add 192.0.2.0/24 via 10.0.2.2 metric 50");
    net->run("ip route add 192.0.2.0/24 via 10.0.1.2 metric 10");
    awaitMembers("192.0.2.0/24", {"10.0.1.2@e1 w1"});
    net->run("ip route del 192.0.2.0/24 metric 10");
    awaitMembers("192.0.2.0/24", {"10.0.2.2@e2 w1"});
}

TEST_F(KernelFibTest, LinkDownFindsWhatTheKernelRemovedSilently) {
    net->run(
        "ip nexthop add id 101 via 10.0.1.2 dev e1; ip nexthop add id 102 via 10.0.2.2 dev e2");
    net->run("ip nexthop add id 200 group 101/102; ip route add 192.0.2.0/24 nhid 200");
    net->run("ip nexthop add id 300 group 102; ip route add 192.0.3.0/24 nhid 300");
    start();
    awaitMembers("192.0.3.0/24", {"10.0.2.2@e2 w1"});
    const auto dumps = kernel->statistics().dumps;
    net->run("ip link set e2 down");
    awaitMembers("192.0.2.0/24", {"10.0.1.2@e1 w1"});
    awaitMembers("192.0.3.0/24",
                 {"none"});  // the group and its IPv4 route: not a word from the kernel
    EXPECT_GT(kernel->statistics().dumps, dumps);
    EXPECT_FALSE(bed.fecs.contains(FecId{300}));
}

TEST_F(KernelFibTest, CarrierLossFindsWhatTheKernelRemovedSilently) {
    net->run("ip nexthop add id 102 via 10.0.2.2 dev e2; ip route add 192.0.3.0/24 nhid 102");
    start();
    awaitMembers("192.0.3.0/24", {"10.0.2.2@e2 w1"});
    net->run("ip link set p2 down");
    awaitMembers("192.0.3.0/24", {"none"});
}

TEST_F(KernelFibTest, DeletedDeviceTakesItsRoutes) {
    net->run("ip nexthop add id 102 via 10.0.2.2 dev e2; ip route add 192.0.3.0/24 nhid 102");
    net->run("ip route add 192.0.4.0/24 via 10.0.2.2");
    start();
    awaitMembers("192.0.4.0/24", {"10.0.2.2@e2 w1"});
    net->run("ip link del e2");
    awaitMembers("192.0.3.0/24", {"none"});
    awaitMembers("192.0.4.0/24", {"none"});
    awaitMembers("10.0.2.0/24", {"none"});
}

TEST_F(KernelFibTest, DeletedNexthopTakesItsIpv4RoutesWithoutAWord) {
    net->run("ip nexthop add id 102 via 10.0.2.2 dev e2; ip route add 192.0.3.0/24 nhid 102");
    start();
    awaitMembers("192.0.3.0/24", {"10.0.2.2@e2 w1"});
    net->run("ip nexthop del id 102");
    awaitMembers("192.0.3.0/24", {"none"});
}

TEST_F(KernelFibTest, MacChangeIsOneUpdate) {
    net->run("ip route add 192.0.2.0/24 via 10.0.1.2");
    start();
    awaitMembers("192.0.2.0/24", {"10.0.1.2@e1 w1"});
    const auto index = bed.index("192.0.2.0/24", "10.0.1.2");
    net->run("ip neigh replace 10.0.1.2 lladdr 02:00:00:00:00:99 dev e1 nud permanent");
    await("the new MAC", [&] {
        return bed.nextHops.at(index).mac == Nexo::EthAddr{{2, 0, 0, 0, 0, 0x99}};
    });
    net->run("ip neigh del 10.0.1.2 dev e1");
    await("no MAC", [&] { return !bed.nextHops.at(index).mac.has_value(); });
}

TEST_F(KernelFibTest, LostNotificationsAreMadeUpForByANewDump) {
    start(4096);  // forced as root: holds a handful of notifications
    net->run(
        "for i in $(seq 1 250); do for j in 1 2 3 4; do "
        "echo route add 198.18.$i.$((j*32))/27 via 10.0.1.2; done; done | ip -batch -");
    await("all routes", [&] {
        return std::count_if(bed.routes.begin(), bed.routes.end(), [](const auto& route) {
                   return route.first.prefix.length() == 27;
               }) == 1000;
    });
    EXPECT_GT(kernel->statistics().overruns, 0U);
    net->run(
        "for i in $(seq 1 250); do for j in 1 2 3 4; do "
        "echo route del 198.18.$i.$((j*32))/27; done; done | ip -batch -");
    await("no such routes", [&] {
        return std::none_of(bed.routes.begin(), bed.routes.end(), [](const auto& route) {
            return route.first.prefix.length() == 27;
        });
    });
}

TEST_F(KernelFibTest, LargeTableComesInSlices) {
    net->run(
        "for i in $(seq 0 199); do for j in $(seq 0 99); do "
        "echo route add 100.$((64+i/100)).$((i%100)).$j/32 via 10.0.1.2; done; done | ip -batch -");
    int slices = 0;
    kernel = std::make_unique<KernelFib>(bed.fib, clock);
    ASSERT_EQ(kernel->open(), "");
    while (!kernel->complete()) {
        ++slices;
        ASSERT_LT(slices, 100000);
        (void)kernel->run([] { return true; });
    }
    bed.settle();
    EXPECT_GE(bed.routes.size(), 20000U);
    EXPECT_GT(slices, 50);
    EXPECT_THAT(bed.fecs, SizeIs(testing::Lt(20U)));
}

/// 20,000 nexthop objects, so that their dump comes in many pieces and the test can step in between.
class InterruptedDumpTest : public KernelFibTest {
protected:
    static constexpr std::size_t kNexthops = 20000;

    void SetUp() override {
        KernelFibTest::SetUp();
        if (IsSkipped()) { return; }
        net->run(
            "for i in $(seq 1 20000); do echo nexthop add id $i via 10.0.1.2 dev e1; done | "
            "ip -batch -");
        kernel = std::make_unique<KernelFib>(bed.fib, clock);
        ASSERT_EQ(kernel->open(), "");
    }
    /// One datagram at a time, a change by `change` after each from the first nexthops on.
    void download(const std::function<void()>& change) {
        for (int step = 0; !kernel->complete(); ++step) {
            ASSERT_LT(step, 10000);
            (void)kernel->run([] { return true; });
            if (bed.fib.nexthopCount() > 100) { change(); }
        }
    }
};

TEST_F(InterruptedDumpTest, IsMadeAgain) {
    bool changed = false;
    download([&] {
        if (!std::exchange(changed, true)) {
            net->run("ip nexthop add id 90000 via 10.0.2.2 dev e2");
        }
    });
    EXPECT_EQ(kernel->statistics().interrupted, 1U);
    EXPECT_EQ(bed.fib.nexthopCount(), kNexthops + 1);
    EXPECT_EQ(kernel->wakeAt(), std::nullopt);
}

TEST_F(InterruptedDumpTest, EndsThoughTheTableNeverStopsChanging) {
    int change = 0;
    download([&] {
        net->run("ip nexthop replace id 90000 via 10.0.2." + std::to_string(2 + ++change % 2) +
                 " dev e2");
    });
    EXPECT_GE(kernel->statistics().interrupted, KernelFib::kMaxInterrupted);
    EXPECT_EQ(bed.fib.nexthopCount(), kNexthops + 1);
    EXPECT_TRUE(kernel->wakeAt() || kernel->dumping());  // another dump, which may sweep
    await("calm", [&] { return !kernel->dumping() && !kernel->wakeAt(); });
}

}  // namespace
}  // namespace Pel::Forwarder

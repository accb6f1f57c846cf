#include "forwarder/Kernel/KernelCounters.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <map>
#include <optional>

#include "forwarder/Kernel/test/KernelFibFixture.h"

namespace Pel::Forwarder {
namespace {

using namespace std::chrono_literals;

constexpr const char* kPrefix = "192.0.2.0/24";

/// The kernel's own counts. What is published stands in `traffic`, by next hop.
class KernelCountersTest : public KernelFibTest {
protected:
    void SetUp() override {
        KernelFibTest::SetUp();
        if (IsSkipped()) { return; }
        net->run("sysctl -qw net.ipv4.fib_multipath_hash_policy=1");
        net->run("ip neigh replace 10.0.2.2 lladdr 02:00:00:00:00:22 dev e2 nud permanent");
        net->run("ip nexthop add id 101 via 10.0.1.2 dev e1");
        net->run("ip nexthop add id 102 via 10.0.2.2 dev e2");
    }
    void weighted() {
        net->run("ip nexthop add id 200 group 101,1/102,3");
        net->run("ip route add 192.0.2.0/24 nhid 200");
        start();
        awaitMembers(kPrefix, {"10.0.1.2@e1 w1", "10.0.2.2@e2 w3"});
        open();
    }
    void open() {
        polls.emplace(counters, pollClock, 10s);
        ASSERT_EQ(polls->open(), "");
        poll();
        if (HasFailure()) { return; }
        if (polls->statistics().incomplete > 0) {
            GTEST_SKIP() << "no statistics of nexthop groups";
        }
    }
    /// Datagrams with so many ports, to spread them.
    static void send(int count, const char* to = "192.0.2.1") {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        inet_pton(AF_INET, to, &address.sin_addr);
        for (int i = 0; i < count; ++i) {
            address.sin_port = htons(static_cast<std::uint16_t>(2000 + i));
            EXPECT_EQ(sendto(fd, "x", 1, 0, reinterpret_cast<sockaddr*>(&address), sizeof address),
                      1);
        }
        close(fd);
    }
    void poll() {
        const auto before = polls->statistics().polls;
        pollClock.advance(10s);
        const auto deadline = std::chrono::steady_clock::now() + 2min;
        while (polls->statistics().polls == before) {
            ASSERT_LT(std::chrono::steady_clock::now(), deadline);
            while (polls->run([this] { return yields; })) {}
            pollfd descriptor{polls->fd(), POLLIN, 0};
            ::poll(&descriptor, 1, 20);
        }
        while (const auto nextHop = counters.takeChanged()) {
            if (counters.wantsPublished(*nextHop)) { counters.publishedIs(*nextHop, {}); }
            traffic[*nextHop] = counters.traffic(*nextHop).value_or(CountedTraffic{}).traffic;
        }
    }
    std::uint64_t packets(const std::string& gateway) {
        return traffic[bed.index(kPrefix, gateway)].packets;
    }

    Kiln::VirtualClock pollClock;
    MemberCounters counters{bed.fib, bed.flatten};
    std::optional<KernelCounters> polls;
    std::map<OcNextHopNumber, Traffic> traffic;
};

TEST_F(KernelCountersTest, PacketsOfAWeightedGroupAreCountedByMember) {
    weighted();
    if (IsSkipped()) { return; }
    EXPECT_TRUE(traffic.empty());
    send(400);
    poll();
    EXPECT_EQ(packets("10.0.1.2") + packets("10.0.2.2"), 400U);
    EXPECT_GT(packets("10.0.2.2"), packets("10.0.1.2"));
    EXPECT_GT(packets("10.0.1.2"), 0U);
}

TEST_F(KernelCountersTest, AGroupThatIsReplacedCountsOn) {
    weighted();
    if (IsSkipped()) { return; }
    send(100);
    poll();
    net->run("ip nexthop replace id 200 group 101,1/102,3");
    send(50);
    poll();
    EXPECT_EQ(packets("10.0.1.2") + packets("10.0.2.2"), 150U);
}

TEST_F(KernelCountersTest, ManyGroupsArriveInPiecesAndTheNextPollIsNotEarly) {
    net->run(
        "for i in $(seq 1000 1999); do echo nexthop add id $i group 101/102; done | ip -batch -");
    net->run(
        "for i in $(seq 0 999); do echo route add 198.$((18 + i / 250)).$((i % 250)).0/24 nhid "
        "$((i + 1000)); done | ip -batch -");
    start();
    await("1000 groups", [&] { return bed.fecs.size() >= 1000; });
    open();
    if (IsSkipped()) { return; }
    yields = true;
    send(3, "198.18.0.1");
    send(3, "198.21.249.1");
    poll();
    std::uint64_t sum = 0;
    for (const auto& [nextHop, counted] : traffic) { sum += counted.packets; }
    EXPECT_EQ(sum, 6U);
    EXPECT_EQ(counters.size(), 2000U);
    ASSERT_TRUE(polls->wakeAt().has_value());
    EXPECT_EQ(*polls->wakeAt(), pollClock.now() + 10s);
    EXPECT_FALSE(polls->run([] { return false; }));
    EXPECT_EQ(polls->statistics().polls, 2U);
}

TEST_F(KernelCountersTest, OctetsAreThoseOfTheVni) {
    net->run("ip link add vxb type vxlan external vnifilter local 10.0.1.1 dstport 4791");
    net->run("ip link set vxb up; ip addr add 10.50.0.1/24 dev vxb");
    net->run("ip link set vxb type vxlan local 10.0.1.1");
    net->run("bridge vni add dev vxb vni 5001-5002");
    net->run("ip neigh replace 10.50.0.2 lladdr 02:00:00:00:50:02 dev vxb nud permanent");
    net->run(
        "ip nexthop add id 301 via 10.50.0.2 dev vxb encap ip id 5001 dst 10.0.1.2 src 10.0.1.1");
    net->run(
        "ip nexthop add id 302 via 10.50.0.2 dev vxb encap ip id 5002 dst 10.0.1.2 src 10.0.1.1");
    net->run("ip nexthop add id 300 group 301/302");
    net->run("ip route add 192.0.2.0/24 nhid 300");
    start();
    await("two members", [&] { return bed.members(kPrefix).size() == 2; });
    open();
    if (IsSkipped()) { return; }
    send(100);
    poll();
    ASSERT_EQ(traffic.size(), 2U);
    std::uint64_t packets = 0;
    for (const auto& [nextHop, counted] : traffic) {
        packets += counted.packets;
        EXPECT_GT(counted.packets, 0U);
        EXPECT_GT(counted.octets, counted.packets * 29) << "an IPv4 datagram of one octet";
        EXPECT_EQ(counted.octets % counted.packets, 0U) << "all are of one size";
    }
    EXPECT_EQ(packets, 100U);
}

}  // namespace
}  // namespace Pel::Forwarder

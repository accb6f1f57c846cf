#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "forwarder/Kernel/test/KernelFibFixture.h"

namespace Pel::Forwarder {
namespace {

using testing::IsEmpty;

constexpr const char* kPrefix = "192.0.2.0/24";

class KernelVxlanTest : public KernelFibTest {
protected:
    void awaitVti(const std::string& name, const std::string& want) {
        await(name + " as " + want, [&] { return bed.vti(name) == want; });
    }
    void awaitVxlan(const std::string& address, const std::string& want) {
        await("next hop " + address + " over " + want,
              [&] { return bed.vxlan(kPrefix, address) == want; });
    }
};

TEST_F(KernelVxlanTest, DumpFindsDevicesFiltersAndNextHops) {
    net->run(
        "ip link add vx100 type vxlan id 100 local 10.0.1.1 dstport 4789; ip link set vx100 up");
    net->run("ip addr add 10.60.0.1/24 dev vx100");
    net->run("ip link add vxb type vxlan external vnifilter local 10.0.2.1 dstport 4791");
    net->run("bridge vni add dev vxb vni 5001-5002");
    net->run("ip route add 192.0.2.0/24 via 10.60.0.2");
    start();
    awaitVti("vxb", "10.0.2.1,: 4097=5001 4098=5002");
    awaitVti("vx100", "10.0.1.1,: 4096=100");
    awaitVxlan("10.60.0.2", "vx100/4096");
}

TEST_F(KernelVxlanTest, FollowsTheLocalAddress) {
    net->run(
        "ip link add vx100 type vxlan id 100 local 10.0.1.1 dstport 4789; ip link set vx100 up");
    start();
    awaitVti("vx100", "10.0.1.1,: 4096=100");
    net->run("ip link set vx100 type vxlan id 100 local 10.0.2.1");
    awaitVti("vx100", "10.0.2.1,: 4096=100");
    net->run("ip link del vx100");
    awaitVti("vx100", "none");
    net->run("ip link add vx6 type vxlan id 100 local 2001:db8:1::1 dstport 4790");
    awaitVti("vx6", ",2001:db8:1::1: 4097=100");
}

TEST_F(KernelVxlanTest, AddressThatChangedWhileTheDeviceWasDownIsSeenWhenItIsUp) {
    net->run("ip link add vx100 type vxlan id 100 local 10.0.1.1 dstport 4789");
    start();
    awaitVti("vx100", "10.0.1.1,: 4096=100");
    net->run("ip link set vx100 type vxlan id 100 local 10.0.2.1");  // not a word of it
    net->run("ip link set vx100 up");
    awaitVti("vx100", "10.0.2.1,: 4096=100");
}

TEST_F(KernelVxlanTest, FollowsTheVniFilter) {
    start();
    net->run("ip link add vxb type vxlan external vnifilter local 10.0.1.1 dstport 4791");
    awaitVti("vxb", "10.0.1.1,:");
    net->run("bridge vni add dev vxb vni 5001-5003");
    awaitVti("vxb", "10.0.1.1,: 4096=5001 4097=5002 4098=5003");
    net->run("bridge vni delete dev vxb vni 5002");
    awaitVti("vxb", "10.0.1.1,: 4096=5001 4098=5003");
    net->run("ip link set vxb up; ip link set vxb type vxlan local 10.0.2.1");
    awaitVti("vxb", "10.0.2.1,: 4096=5001 4098=5003");
    net->run("ip link del vxb");
    awaitVti("vxb", "none");
}

TEST_F(KernelVxlanTest, LostVniNotificationsAreMadeUpForByANewDump) {
    net->run("ip link add vxb type vxlan external vnifilter dstport 4791");
    start(4096);
    const auto overruns = kernel->statistics().overruns;
    net->run(
        "for i in $(seq 1 200); do echo vni add dev vxb vni $((i * 2)); done | bridge -batch -");
    await("200 VNIs",
          [&] { return bed.vtis.vti.at(Nexo::IntfId{"vxb"}).vlanVniMap.size() == 200; });
    EXPECT_GT(kernel->statistics().overruns, overruns);
    net->run(
        "for i in $(seq 2 200); do echo vni delete dev vxb vni $((i * 2)); done | bridge -batch -");
    await("1 VNI", [&] { return bed.vtis.vti.at(Nexo::IntfId{"vxb"}).vlanVniMap.size() == 1; });
}

TEST_F(KernelVxlanTest, FollowsTheEncapsulationOfANexthopObject) {
    net->run("ip link add vxe type vxlan external dstport 4790; ip link set vxe up");
    net->run("ip addr add 10.50.0.1/24 dev vxe");
    net->run(
        "ip nexthop add id 301 via 10.50.0.2 dev vxe encap ip id 5001 dst 10.0.1.2 src 10.0.1.1 "
        "ttl 64 tos 8");
    net->run("ip route add 192.0.2.0/24 nhid 301");
    start();
    awaitVxlan("10.0.1.2", "vxe/4096");
    awaitVti("vxe", "10.0.1.1,: 4096=5001");
    EXPECT_THAT(bed.members(kPrefix), testing::ElementsAre("10.0.1.2@vxe w1"));
    net->run(
        "ip nexthop replace id 301 via 10.50.0.2 dev vxe encap ip id 6001 dst 10.0.1.3 src "
        "10.0.1.1");
    awaitVxlan("10.0.1.3", "vxe/4097");
    awaitVti("vxe", "10.0.1.1,: 4097=6001");
    net->run(
        "ip nexthop replace id 301 via 10.50.0.2 dev vxe encap ip6 id 5003 dst 2001:db8:1::2 src "
        "2001:db8:1::1 hoplimit 33");
    awaitVxlan("2001:db8:1::2", "vxe/4098");
    awaitVti("vxe", ",2001:db8:1::1: 4098=5003");
    net->run("ip link set vxe type vxlan local 10.0.2.1");
    awaitVti("vxe", "10.0.2.1,: 4098=5003");
    net->run("ip route del 192.0.2.0/24");
    awaitVti("vxe", "10.0.2.1,:");
}

TEST_F(KernelVxlanTest, RouteWithAnEncapsulationOfItsOwn) {
    net->run("ip link add vxb type vxlan external vnifilter local 10.0.1.1 dstport 4791");
    net->run("ip link set vxb up; ip addr add 10.50.0.1/24 dev vxb");
    start();
    net->run("ip route add 192.0.2.0/24 encap ip id 5001 dst 10.0.1.2 via 10.50.0.2 dev vxb");
    awaitVxlan("10.0.1.2", "vxb/4096");
    EXPECT_EQ(bed.vti("vxb"), "10.0.1.1,:") << "not in the filter";
    net->run("bridge vni add dev vxb vni 5001");
    awaitVti("vxb", "10.0.1.1,: 4096=5001");
    net->run("bridge vni delete dev vxb vni 5001");
    awaitVti("vxb", "10.0.1.1,:");
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "vxb/4096");
    net->run("ip link del vxb");
    awaitMembers(kPrefix, {"none"});
    awaitVti("vxb", "none");
}

TEST_F(KernelVxlanTest, BridgeOverOneTunnelAsForAnL3Vni) {
    net->run("ip link add br100 type bridge; ip link set br100 up");
    net->run("ip link add vx100 type vxlan id 100 local 10.0.1.1 dstport 4789 nolearning");
    net->run("ip link set vx100 master br100 addrgenmode none; ip link set vx100 up");
    net->run("ip neigh add 10.0.1.2 lladdr 02:00:00:00:01:02 dev br100 nud noarp");
    start();
    net->run("ip route add 192.0.2.0/24 via 10.0.1.2 dev br100 onlink");
    awaitVxlan("10.0.1.2", "vx100/4096");
    net->run("ip link set p2 master br100");
    awaitVxlan("10.0.1.2", "");
    net->run("ip link set p2 nomaster");
    awaitVxlan("10.0.1.2", "vx100/4096");
    net->run("ip link set vx100 nomaster");
    awaitVxlan("10.0.1.2", "");
}

}  // namespace
}  // namespace Pel::Forwarder

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>

#include "forwarder/Flatten/NextHopContent.h"
#include "forwarder/Flatten/test/FlattenBed.h"

namespace Pel::Forwarder {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* kPrefix = "198.51.1.0/24";

Nexo::IpGenAddr ip(const std::string& text) {
    return *Nexo::IpGenAddr::parse(text);
}

/// A plain link 1, and room for VXLAN devices from 10 on.
class FlattenVxlan : public testing::Test {
protected:
    FlattenVxlan() { bed.link(1, "e1"); }
    void route(const std::vector<Path>& paths, const std::string& prefix = kPrefix) {
        bed.add(FlattenBed::route(prefix, paths));
    }
    /// What a new run publishes that hears the same story.
    template <class Story>
    FlatDiff again(Story story) {
        FlattenBed next;
        bed.restoreInto(next.flatten);
        next.vtis = bed.vtis;
        next.nextHops = bed.nextHops;
        next.fecs = bed.fecs;
        next.routes = bed.routes;
        next.vrfs = bed.vrfs;
        story(next);
        return next.settle(1);
    }
    FlattenBed bed;
};

// Tunnel interfaces

TEST_F(FlattenVxlan, DeviceIsATunnelInterfaceWithItsAddressAndVni) {
    Link link = FlattenBed::vxlan(10, "vx100", 100);
    link.vxlanLocal = ip("10.0.1.1");
    bed.fib.apply(link);
    bed.settle();
    EXPECT_EQ(bed.vti("vx100"), "10.0.1.1,: 4096=100");
    link.vxlanLocal = ip("2001:db8::1");
    bed.fib.apply(link);
    bed.settle();
    EXPECT_EQ(bed.vti("vx100"), ",2001:db8::1: 4096=100");
    bed.fib.linkDel(10);
    bed.settle();
    EXPECT_EQ(bed.vti("vx100"), "none");
}

TEST_F(FlattenVxlan, NothingIsSaidOfTunnelInterfacesWithoutAny) {
    route({FlattenBed::path("10.0.1.2", 1)});
    EXPECT_THAT(bed.settle().vtis, IsEmpty());
    bed.link(1, "e1", false);
    EXPECT_THAT(bed.settle().vtis, IsEmpty());
}

TEST_F(FlattenVxlan, WhatDoesNotConcernTheTunnelInterfaceSaysNothingOfIt) {
    Link link = FlattenBed::vxlan(10, "vx100", 100);
    bed.fib.apply(link);
    EXPECT_THAT(bed.settle().vtis, SizeIs(1));
    link.running = false;
    bed.fib.apply(link);
    EXPECT_THAT(bed.settle().vtis, IsEmpty());
}

TEST_F(FlattenVxlan, RenamedDeviceIsAnotherTunnelInterface) {
    bed.fib.apply(FlattenBed::vxlan(10, "vx100", 100));
    route({FlattenBed::path("10.9.0.2", 10)});
    bed.settle();
    bed.fib.apply(FlattenBed::vxlan(10, "overlay", 100));
    bed.settle();
    EXPECT_EQ(bed.vti("vx100"), "none");
    EXPECT_EQ(bed.vti("overlay"), ",: 4096=100");
    EXPECT_EQ(bed.vxlan(kPrefix, "10.9.0.2"), "overlay/4096");
}

TEST_F(FlattenVxlan, VniFilterIsTheVlanMap) {
    Link link = FlattenBed::vxlan(10, "vxb", 0);
    link.vniFilter = true;
    bed.fib.apply(link);
    bed.settle();
    EXPECT_EQ(bed.vti("vxb"), ",:");
    bed.fib.apply(VniFilter{10, {{5001, 5002}}});
    bed.settle();
    EXPECT_EQ(bed.vti("vxb"), ",: 4096=5001 4097=5002");
    bed.fib.vniFilterDel({10, {{5001, 5001}}});
    bed.fib.apply(VniFilter{10, {{6000, 6000}}});
    bed.settle();
    EXPECT_EQ(bed.vti("vxb"), ",: 4097=5002 4098=6000");
}

TEST_F(FlattenVxlan, NewDeviceOfAnOldNumberHasNoFilterOfTheOldOne) {
    Link link = FlattenBed::vxlan(10, "vxb", 0);
    link.vniFilter = true;
    bed.fib.apply(link);
    bed.fib.apply(VniFilter{10, {{5001, 5002}}});
    bed.fib.linkDel(10);
    bed.fib.apply(link);
    bed.settle();
    EXPECT_EQ(bed.vti("vxb"), ",:");
}

TEST_F(FlattenVxlan, FilterOfAllVnisTakesTheNumbersThatThereAre) {
    Link link = FlattenBed::vxlan(10, "vxb", 0);
    link.vniFilter = true;
    bed.fib.apply(link);
    route({FlattenBed::tunnel("", 10, 9'000'000, "10.0.1.2")});
    bed.settle();
    bed.fib.apply(VniFilter{10, {{1, kMaxVni}}});
    bed.settle();
    const Vxlan::VtiStatus& status = bed.vtis.vti.at(Nexo::IntfId{"vxb"});
    EXPECT_EQ(status.vlanVniMap.size(), VlanNumbers::kCount);
    EXPECT_EQ(status.vlanVniMap.at(4096), 9'000'000U) << "what a next hop names is among them";
}

TEST_F(FlattenVxlan, DevicesOfOneVniHaveOneVlan) {
    bed.fib.apply(FlattenBed::vxlan(10, "vx1", 100));
    bed.fib.apply(FlattenBed::vxlan(11, "vx2", 200));
    bed.fib.apply(FlattenBed::vxlan(12, "vx3", 100));
    bed.settle();
    EXPECT_EQ(bed.vti("vx1"), ",: 4096=100");
    EXPECT_EQ(bed.vti("vx2"), ",: 4097=200");
    EXPECT_EQ(bed.vti("vx3"), ",: 4096=100");
}

// VLANs that the kernel tells

TEST_F(FlattenVxlan, AccessVlanOfThePortIsTheVlanWhereItsBridgeTellsVlansApart) {
    Link link = FlattenBed::vxlan(10, "vx100", 100);
    link.master = 5;
    bed.fib.apply(link);
    bed.fib.apply(FlattenBed::bridge(5, "br0"));
    bed.fib.apply(BridgePort{10, 30, {}});
    route({FlattenBed::path("10.9.0.2", 10)});
    bed.settle();
    EXPECT_EQ(bed.vti("vx100"), ",: 4096=100");
    bed.fib.apply(FlattenBed::bridge(5, "br0", true));
    bed.settle();
    EXPECT_EQ(bed.vti("vx100"), ",: 30=100");
    EXPECT_EQ(bed.vxlan(kPrefix, "10.9.0.2"), "vx100/30");
    bed.fib.apply(BridgePort{10, 40, {}});
    bed.settle();
    EXPECT_EQ(bed.vti("vx100"), ",: 40=100");
    EXPECT_EQ(bed.vxlan(kPrefix, "10.9.0.2"), "vx100/40");
    bed.fib.bridgePortDel(10);
    bed.settle();
    EXPECT_EQ(bed.vti("vx100"), ",: 4096=100");
    EXPECT_EQ(bed.vxlan(kPrefix, "10.9.0.2"), "vx100/4096");
}

TEST_F(FlattenVxlan, VlansThatThePortMapsAreThoseOfTheirVnis) {
    Link link = FlattenBed::vxlan(10, "vxe", 0);
    link.master = 5;
    bed.fib.apply(link);
    bed.fib.apply(FlattenBed::bridge(5, "br0", true));
    bed.fib.apply(BridgePort{10, 1, {{10, 5001}, {20, 5002}}});
    route({FlattenBed::tunnel("10.9.0.2", 10, 5002, "10.0.1.2"),
           FlattenBed::tunnel("10.9.0.3", 10, 7000, "10.0.1.3")});
    bed.settle();
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "vxe/20");
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.3").substr(0, 5), "vxe/4");
    EXPECT_THAT(bed.vtis.vti.at(Nexo::IntfId{"vxe"}).vlanVniMap, SizeIs(3));
    EXPECT_EQ(bed.vtis.vti.at(Nexo::IntfId{"vxe"}).vlanVniMap.at(10), 5001U);
}

TEST_F(FlattenVxlan, SweepForgetsPortsAndFiltersThatADumpDoesNotMention) {
    Link link = FlattenBed::vxlan(10, "vx100", 100);
    link.master = 5;
    bed.fib.apply(link);
    bed.fib.apply(FlattenBed::bridge(5, "br0", true));
    bed.fib.apply(BridgePort{10, 30, {}});
    Link filtered = FlattenBed::vxlan(11, "vxb", 0);
    filtered.vniFilter = true;
    bed.fib.apply(filtered);
    bed.fib.apply(VniFilter{11, {{5001, 5002}}});
    bed.settle();
    std::size_t budget = 1000;
    bed.fib.beginDump(FibPart::VniFilters);
    bed.fib.apply(VniFilter{11, {{5002, 5002}}});
    EXPECT_FALSE(bed.fib.sweep(FibPart::VniFilters, budget));
    bed.fib.beginDump(FibPart::BridgePorts);
    EXPECT_FALSE(bed.fib.sweep(FibPart::BridgePorts, budget));
    bed.settle();
    EXPECT_THAT(bed.vtis.vti.at(Nexo::IntfId{"vxb"}).vlanVniMap, SizeIs(1));
    EXPECT_EQ(bed.vtis.vti.at(Nexo::IntfId{"vxb"}).vlanVniMap.begin()->second, 5002U);
    EXPECT_GE(bed.vtis.vti.at(Nexo::IntfId{"vx100"}).vlanVniMap.begin()->first, 4096U);
}

// Next hops

TEST_F(FlattenVxlan, NextHopOverAPlainDeviceHasItsVni) {
    bed.fib.apply(FlattenBed::vxlan(10, "vx100", 100));
    route({FlattenBed::path("10.9.0.2", 10), FlattenBed::path("10.0.1.2", 1)});
    bed.settle();
    EXPECT_EQ(bed.vxlan(kPrefix, "10.9.0.2"), "vx100/4096");
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "");
    EXPECT_THAT(bed.members(kPrefix), ElementsAre("10.0.1.2@e1 w1", "10.9.0.2@vx100 w1"));
}

TEST_F(FlattenVxlan, NextHopOverAnExternalDeviceNamesTheVniAndTheRemoteVtep) {
    bed.fib.apply(FlattenBed::vxlan(10, "vxe", 0));
    bed.neighbour(10, "10.50.0.2", 0x52);
    Nexthop nexthop;
    nexthop.id = 301;
    nexthop.path = FlattenBed::tunnel("10.50.0.2", 10, 5001, "10.0.1.2");
    bed.fib.apply(nexthop);
    bed.add(FlattenBed::nhidRoute(kPrefix, 301));
    bed.settle();
    EXPECT_EQ(bed.vti("vxe"), ",: 4096=5001");
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "vxe/4096");
    EXPECT_EQ(bed.nextHops.at(bed.index(kPrefix, "10.0.1.2")).mac,
              (Nexo::EthAddr{{2, 0, 0, 0, 0, 0x52}}))
        << "the gateway's, which is the inner one";
}

TEST_F(FlattenVxlan, ChangedEncapsulationIsAnotherNextHop) {
    bed.fib.apply(FlattenBed::vxlan(10, "vxe", 0));
    Nexthop nexthop;
    nexthop.id = 301;
    nexthop.path = FlattenBed::tunnel("10.50.0.2", 10, 5001, "10.0.1.2");
    bed.fib.apply(nexthop);
    bed.add(FlattenBed::nhidRoute(kPrefix, 301));
    bed.settle();
    const auto before = bed.index(kPrefix, "10.0.1.2");
    nexthop.path = FlattenBed::tunnel("10.50.0.2", 10, 6001, "10.0.1.2");
    bed.fib.apply(nexthop);
    bed.settle();
    EXPECT_NE(bed.index(kPrefix, "10.0.1.2"), before);
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "vxe/4097");
    EXPECT_EQ(bed.vti("vxe"), ",: 4097=6001") << "the old VNI is nobody's any more";
}

TEST_F(FlattenVxlan, VniOutsideTheFilterHasAVlanThatTheDeviceDoesNotMap) {
    Link link = FlattenBed::vxlan(10, "vxb", 0);
    link.vniFilter = true;
    bed.fib.apply(link);
    bed.fib.apply(VniFilter{10, {{5001, 5001}}});
    route({FlattenBed::tunnel("10.9.0.2", 10, 6001, "10.0.1.2")});
    bed.settle();
    EXPECT_EQ(bed.vti("vxb"), ",: 4096=5001");
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "vxb/4097");
    bed.fib.apply(VniFilter{10, {{6001, 6001}}});
    const FlatDiff diff = bed.settle();
    EXPECT_EQ(bed.vti("vxb"), ",: 4096=5001 4097=6001");
    EXPECT_EQ(diff.size(), 1U) << "the tunnel interface only";
    bed.fib.vniFilterDel({10, {{6001, 6001}}});
    bed.settle();
    EXPECT_EQ(bed.vti("vxb"), ",: 4096=5001");
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "vxb/4097");
}

TEST_F(FlattenVxlan, VniStaysMappedWhileSomeNextHopNamesIt) {
    bed.fib.apply(FlattenBed::vxlan(10, "vxe", 0));
    route({FlattenBed::tunnel("10.9.0.2", 10, 5001, "10.0.1.2")});
    route({FlattenBed::tunnel("10.9.0.2", 10, 5001, "10.0.1.3")}, "198.51.2.0/24");
    bed.settle();
    bed.del(FlattenBed::route(kPrefix, {}));
    bed.settle();
    EXPECT_EQ(bed.vti("vxe"), ",: 4096=5001");
    bed.del(FlattenBed::route("198.51.2.0/24", {}));
    bed.settle();
    EXPECT_EQ(bed.vti("vxe"), ",:");
}

TEST_F(FlattenVxlan, DeviceWithoutAddressShowsTheOneThatAllItsNextHopsSendFrom) {
    Link link = FlattenBed::vxlan(10, "vxe", 0);
    bed.fib.apply(link);
    route({FlattenBed::tunnel("", 10, 5001, "10.0.1.2", "10.0.1.1")});
    route({FlattenBed::tunnel("", 10, 5002, "2001:db8::2", "2001:db8::1")}, "198.51.2.0/24");
    bed.settle();
    EXPECT_EQ(bed.vti("vxe"), "10.0.1.1,2001:db8::1: 4096=5001 4097=5002");
    route({FlattenBed::tunnel("", 10, 5001, "10.0.1.2", "10.0.1.7")}, "198.51.3.0/24");
    bed.settle();
    EXPECT_EQ(bed.vti("vxe"), ",2001:db8::1: 4096=5001 4097=5002") << "two: none is the device's";
    bed.del(FlattenBed::route("198.51.3.0/24", {}));
    bed.settle();
    EXPECT_EQ(bed.vti("vxe"), "10.0.1.1,2001:db8::1: 4096=5001 4097=5002");
    link.vxlanLocal = ip("10.0.9.9");
    bed.fib.apply(link);
    bed.settle();
    EXPECT_EQ(bed.vti("vxe"), "10.0.9.9,: 4096=5001 4097=5002");
}

TEST_F(FlattenVxlan, ExternalDeviceWithoutEncapsulationIsNoTunnel) {
    bed.fib.apply(FlattenBed::vxlan(10, "vxe", 0));
    route({FlattenBed::path("10.9.0.2", 10)});
    bed.settle();
    EXPECT_EQ(bed.vxlan(kPrefix, "10.9.0.2"), "");
}

TEST_F(FlattenVxlan, VniZeroIsNotMapped) {
    bed.fib.apply(FlattenBed::vxlan(10, "vxe", 0));
    route({FlattenBed::tunnel("", 10, 0, "10.0.1.2")});
    bed.settle();
    EXPECT_EQ(bed.vti("vxe"), ",:");
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "vxe/0");
}

TEST_F(FlattenVxlan, DeviceThatComesAfterItsNextHopsIsTheirTunnel) {
    route({FlattenBed::tunnel("10.9.0.2", 10, 5001, "10.0.1.2")});
    bed.settle();
    EXPECT_THAT(bed.members(kPrefix), IsEmpty()) << "no link, so not up";
    bed.fib.apply(FlattenBed::vxlan(10, "vxe", 0));
    bed.settle();
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "vxe/4096");
    EXPECT_EQ(bed.vti("vxe"), ",: 4096=5001");
}

TEST_F(FlattenVxlan, BridgeWithNothingButAVxlanPortIsThatTunnel) {
    Link port = FlattenBed::vxlan(10, "vx100", 100);
    port.master = 5;
    bed.fib.apply(FlattenBed::bridge(5, "br100"));
    bed.fib.apply(port);
    route({FlattenBed::path("10.0.1.2", 5)});
    bed.settle();
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "vx100/4096");
    Link other;
    other.ifindex = 6;
    other.name = "e6";
    other.master = 5;
    other.up = other.running = true;
    bed.fib.apply(other);
    bed.settle();
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "") << "may be behind the other port";
    other.master = 0;
    bed.fib.apply(other);
    bed.settle();
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "vx100/4096");
    bed.fib.linkDel(10);
    bed.settle();
    EXPECT_EQ(bed.vxlan(kPrefix, "10.0.1.2"), "");
}

TEST_F(FlattenVxlan, BareudpDeviceAddsAUdpHeader) {
    Link link;
    link.ifindex = 10;
    link.name = "u0";
    link.kind = LinkKind::Bareudp;
    link.up = link.running = true;
    bed.fib.apply(link);
    route({FlattenBed::tunnel("10.9.0.2", 10, 0, "2001:db8::2", "2001:db8::1")});
    bed.settle();
    const FlatNextHop& nextHop = bed.nextHops.at(bed.index(kPrefix, "10.9.0.2"));
    ASSERT_NE(nextHop.encap, nullptr);
    EXPECT_EQ(nextHop.encap->udp, (Stash::GueEncap{2, ip("2001:db8::1"), ip("2001:db8::2"), 64}));
}

TEST_F(FlattenVxlan, TunnelHeaderOfAnyOtherDeviceIsIdentityOnly) {
    route({FlattenBed::tunnel("10.9.0.2", 1, 5001, "10.0.1.2"), FlattenBed::path("10.9.0.2", 1)});
    bed.settle();
    EXPECT_THAT(bed.members(kPrefix), ElementsAre("10.9.0.2@e1 w1", "10.9.0.2@e1 w1"));
    for (const auto& [index, nextHop] : bed.nextHops) { EXPECT_EQ(nextHop.encap, nullptr); }
}

// Restart

void everything(FlattenBed& bed, bool reversed = false) {
    bed.link(1, "e1");
    Link filtered = FlattenBed::vxlan(11, "vxb", 0);
    filtered.vniFilter = true;
    std::vector<Link> links = {
        FlattenBed::vxlan(10, "vx100", 100), filtered, FlattenBed::vxlan(12, "vxe", 0)};
    if (reversed) { std::reverse(links.begin(), links.end()); }
    for (const Link& link : links) { bed.fib.apply(link); }
    bed.fib.apply(VniFilter{11, {{5001, 5003}}});
    std::vector<std::pair<const char*, Path>> routes = {
        {"198.51.1.0/24", FlattenBed::path("10.9.0.2", 10)},
        {"198.51.2.0/24", FlattenBed::tunnel("", 11, 5002, "10.0.1.2", "10.0.1.1")},
        {"198.51.3.0/24", FlattenBed::tunnel("", 11, 7002, "10.0.1.3", "10.0.1.1")},
        {"198.51.4.0/24", FlattenBed::tunnel("", 12, 8001, "10.0.1.4", "10.0.1.1")},
        {"198.51.5.0/24", FlattenBed::tunnel("10.9.0.7", 12, 8002, "2001:db8::4")}};
    if (reversed) { std::reverse(routes.begin(), routes.end()); }
    for (const auto& [prefix, path] : routes) { bed.add(FlattenBed::route(prefix, {path})); }
}

TEST_F(FlattenVxlan, RestartIsSilent) {
    everything(bed);
    bed.settle();
    EXPECT_TRUE(again([](FlattenBed& next) { everything(next); }).empty());
    EXPECT_TRUE(again([](FlattenBed& next) { everything(next, true); }).empty());
}

TEST_F(FlattenVxlan, RestartSaysWhatHasGoneOnceTheFirstDownloadIsSettled) {
    everything(bed);
    bed.settle();
    const FlatDiff diff = again([](FlattenBed& next) {
        everything(next);
        next.del(FlattenBed::route("198.51.4.0/24", {}));
    });
    ASSERT_THAT(diff.vtis, SizeIs(1));
    const auto& map = diff.vtis[0].vti.at(Nexo::IntfId{"vxe"}).vlanVniMap;
    ASSERT_THAT(map, SizeIs(1));
    EXPECT_EQ(map.begin()->second, 8002U);
    EXPECT_THAT(diff.nextHopDeletes, SizeIs(1));
    EXPECT_THAT(diff.nextHops, IsEmpty());
}

using Step = std::function<void(FlattenBed&)>;

Link randomDevice(std::mt19937& random) {
    const auto number = static_cast<std::uint32_t>(10 + random() % 3);
    Link link = FlattenBed::vxlan(number, "vx" + std::to_string(number), number == 10 ? 100 : 0);
    link.vniFilter = number == 11;
    link.up = random() % 4 != 0;
    if (random() % 2 == 0) { link.vxlanLocal = ip("10.0.1." + std::to_string(random() % 3)); }
    link.master = random() % 2 == 0 ? 5 : 0;
    return link;
}

Step randomStep(std::mt19937& random) {
    const auto device = static_cast<std::uint32_t>(10 + random() % 3);
    const auto vni = static_cast<std::uint32_t>(5000 + random() % 6);
    const auto vlan = static_cast<std::uint16_t>(1 + random() % 3);
    const std::string prefix = "198.51." + std::to_string(random() % 6) + ".0/24";
    const std::string remote = "10.0.1." + std::to_string(random() % 4);
    const bool yes = random() % 2 == 0;
    switch (random() % 8) {
        case 0:
            return [link = randomDevice(random)](FlattenBed& bed) { bed.fib.apply(link); };
        case 1:
            return [=](FlattenBed& bed) {
                if (yes) { bed.fib.linkDel(device); }
            };
        case 2:
            return [=](FlattenBed& bed) { bed.fib.apply(VniFilter{11, {{vni, vni + vlan}}}); };
        case 3:
            return [=](FlattenBed& bed) { bed.fib.vniFilterDel({11, {{vni, vni}}}); };
        case 4:
            return [=](FlattenBed& bed) {
                bed.fib.apply(FlattenBed::bridge(5, "br0", yes));
                bed.fib.apply(BridgePort{device, vlan, {{vlan, vni}}});
            };
        case 5:
            return [=](FlattenBed& bed) {
                bed.add(FlattenBed::route(
                    prefix, {FlattenBed::tunnel("", device, vni, remote, yes ? "10.0.1.9" : "")}));
            };
        case 6:
            return [=](FlattenBed& bed) {
                bed.add(FlattenBed::route(prefix,
                                          {FlattenBed::path(remote, yes ? 5 : 10),
                                           FlattenBed::tunnel("", 12, vni, remote)}));
            };
        default:
            return [=](FlattenBed& bed) { bed.del(FlattenBed::route(prefix, {})); };
    }
}

/// Each next hop's tunnel interface is there, and maps its VLAN to its VNI if it serves that.
void checkTunnels(const FlattenBed& bed, const std::string& where) {
    std::map<std::uint32_t, std::uint32_t> vniOf;
    for (const auto& [name, status] : bed.vtis.vti) {
        for (const auto& [vlan, vni] : status.vlanVniMap) {
            if (vlan < VlanNumbers::kFirst) { continue; }
            ASSERT_EQ(vniOf.emplace(vlan, vni).first->second, vni) << where;
        }
    }
    for (const auto& [index, nextHop] : bed.nextHops) {
        if (nextHop.encap == nullptr || !nextHop.encap->vxlan) { continue; }
        const auto& [vti, vlan] = *nextHop.encap->vxlan;
        ASSERT_NE(vlan, 0U) << where;
        ASSERT_TRUE(bed.vtis.vti.contains(vti)) << where;
        if (vti.stringValue() == "vx11") { continue; }  // its filter may be without it
        ASSERT_TRUE(bed.vtis.vti.at(vti).vlanVniMap.contains(vlan)) << where;
    }
}

TEST(FlattenVxlanRandom, TunnelsAreConsistentAndRestartsSilent) {
    unsigned renumbered = 0;
    for (unsigned seed = 1; seed <= 300; ++seed) {
        std::mt19937 random{seed};
        FlattenBed bed;
        std::vector<Step> story;
        for (int i = 0; i < 200; ++i) {
            story.push_back(randomStep(random));
            story.back()(bed);
            if (random() % 7 != 0) { continue; }
            bed.settle(1 + random() % 5);
            checkTunnels(bed, "seed " + std::to_string(seed) + " step " + std::to_string(i));
        }
        bed.settle();
        FlattenBed next;
        bed.restoreInto(next.flatten);
        next.vtis = bed.vtis;
        for (const Step& step : story) { step(next); }
        const FlatDiff diff = next.settle(1 + random() % 50);
        // But for the VLAN of a VNI that no device serves, which the store knows by a next hop only.
        EXPECT_EQ(diff.size(), diff.nextHops.size()) << "seed " << seed;
        for (const FlatNextHop& nextHop : diff.nextHops) {
            ++renumbered;
            EXPECT_TRUE(sameMember(bed.nextHops.at(nextHop.index), nextHop)) << "seed " << seed;
            EXPECT_EQ(nextHop.interfaceName, "vx11") << "seed " << seed;
        }
    }
    EXPECT_LE(renumbered, 3U);
}

}  // namespace
}  // namespace Pel::Forwarder

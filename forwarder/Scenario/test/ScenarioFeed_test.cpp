#include "forwarder/Scenario/ScenarioFeed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>

#include "forwarder/Flatten/Fib.h"
#include "forwarder/Publish/Publish.h"
#include "forwarder/Scenario/Description.h"
#include "forwarder/Scenario/FileSource.h"
#include "forwarder/Scenario/test/FeedBed.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "platform/Vel/Fields.h"

namespace Pel::Forwarder {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

constexpr std::uint64_t kFec = std::uint64_t{4} << 56U;

const std::string kText =
    "scenario: 1\n"
    "interfaces: [{name: e1}, {name: e1.7, parent: e1, subinterface: 7}]\n"
    "vrfs: [{name: red, id: 1001}]\n"
    "vtis: [{name: Vxlan1, vtep: 10.9.0.1, vlans: {10: 10010}}]\n"
    "udpDestinationPorts:\n"
    "  - {payload: mpls, port: 6635}\n"
    "  - {payload: ipv4, port: 6080, mode: default}\n"
    "  - {payload: mpls, source: bgp, port: 6636}\n"
    "decapGroups:\n"
    "  - {name: in, payload: mpls, port: 6635}\n"
    "  - {name: in, source: bgp, payload: ipv6, port: 6081}\n"
    "  - {name: tun, source: bgp, payload: gre}\n"
    "nextHops:\n"
    "  - {name: a, index: 1, interface: e1, address: 10.0.0.1, mac: '02:00:00:00:00:01'}\n"
    "  - {name: b, index: 2, interface: e1.7, address: '2001:db8::2', labels: [100, 200],\n"
    "     pop: true, decapVrf: red, decapHeader: mpls, fallbackVrf: 254}\n"
    "  - {name: c, index: 3, encapOrder: [mpls, udp], mplsEncapLabels: [300],\n"
    "     gue: {source: 192.0.2.1, destination: 192.0.2.2, ttl: 64}}\n"
    "  - {name: d, index: 4, vxlan: {vti: Vxlan1, vlan: 10}}\n"
    "fecs:\n"
    "  - {id: 41, name: blue, groupAttribute: 2, programmedId: 7,\n"
    "     members: [a, {nextHop: b, weight: 3}]}\n"
    "  - {id: 42, top: false, secondFlag: true, members: [b, c, d]}\n"
    "  - {id: kernel/5}\n"
    "routes:\n"
    "  - {prefix: 10.1.0.0/16, fec: 41, origin: bgp}\n"
    "  - {vrf: red, prefix: '2001:db8:1::/48', fec: 42, origin: static}\n"
    "ready: {fibReady: {red: none}}\n";

class ScenarioFeedTest : public FeedBed {};

TEST_F(ScenarioFeedTest, AgentSeesWhatIsDescribed) {
    play(kText);
    EXPECT_THAT(
        view().nextHop(1),
        testing::AllOf(
            testing::StartsWith("41[0] "), HasSubstr("10.0.0.1"), HasSubstr("02:00:00:00:00:01")));
    EXPECT_THAT(view().nextHop(2),
                testing::AllOf(testing::StartsWith("41[1] "),
                               HasSubstr("e1.7"),
                               HasSubstr("[100, 200]"),
                               HasSubstr("2001:db8::2")));
    EXPECT_THAT(
        view().nextHop(3),
        testing::AllOf(
            testing::StartsWith("42[1] "), HasSubstr("[mpls, udp]"), HasSubstr("192.0.2.2")));
    EXPECT_THAT(view().nextHop(4), testing::AllOf(HasSubstr("42[2] "), HasSubstr("Vxlan1")));
    EXPECT_EQ(view().fec(kFec | 41), "top programmed 7 blue/2: 1w1 2w3");
    EXPECT_EQ(view().fec(kFec | 42), "bottom second programmed 0 /0: 2w1 3w1 4w1");
    EXPECT_EQ(view().fec(5), "top programmed 0 /0:");
    EXPECT_EQ(view().route("default", "10.1.0.0/16"), "41 BGP");
    EXPECT_EQ(view().route("red", "2001:db8:1::/48"), "42 STATIC");
    EXPECT_EQ(view().vrfName(1001), "red");
    EXPECT_EQ(view().vrfName(254), "default");
    EXPECT_EQ(view().vrfName(9), "none");
    EXPECT_EQ(view().counter(kFec | 41, 1), 2U);
    EXPECT_EQ(view().counter(kFec | 42, 0), 0U);  // counted in the first of its FECs only
    EXPECT_EQ(view().fecReady(), "true");
    EXPECT_EQ(view().fibReady("default"), "true");
    EXPECT_EQ(view().fibReady("red"), "none");
    EXPECT_TRUE(view().entity("interface/status/eth/vxlan"));
}

constexpr const char* kPorts = "l3/tunnel/udpDestinationPortConfig";
constexpr const char* kPortsOfBgp = "routing/nexthopgroup/input/config/bgp";
constexpr const char* kGroups = "routing/tunneldecap/input/cli";
constexpr const char* kGroupsOfBgp = "routing/tunneldecap/input/dynamic/bgp";

TEST_F(ScenarioFeedTest, TunnelConfigurationIsOneRecordASource) {
    play(kText);
    EXPECT_EQ(view().vtis(), "Vxlan1 10.9.0.1/ 10:10010");
    EXPECT_EQ(view().udpPorts(kPorts), "1:6635/1 3:6080/0");
    EXPECT_EQ(view().udpPorts(kPortsOfBgp), "1:6636/1");
    EXPECT_EQ(view().decapGroups(kGroups), "in:1/6635");
    EXPECT_EQ(view().decapGroups(kGroupsOfBgp), "in:4/6081 tun:2/0");
}

TEST_F(ScenarioFeedTest, TunnelConfigurationThatTheScenarioHasNoMoreIsDeleted) {
    play(kText);
    play(
        "scenario: 1\n"
        "udpDestinationPorts: [{payload: mpls, source: bgp, port: 6636}]\n"
        "decapGroups: [{name: in, payload: mpls, port: 6635}]\n");
    EXPECT_EQ(view().vtis(), "none");
    EXPECT_EQ(view().udpPorts(kPorts), "none");
    EXPECT_EQ(view().udpPorts(kPortsOfBgp), "1:6636/1");
    EXPECT_EQ(view().decapGroups(kGroups), "in:1/6635");
    EXPECT_EQ(view().decapGroups(kGroupsOfBgp), "none");
    play("scenario: 1\n");
    EXPECT_EQ(view().udpPorts(kPortsOfBgp), "none");
    EXPECT_EQ(view().decapGroups(kGroups), "none");
}

TEST_F(ScenarioFeedTest, TunnelConfigurationFollowsTheTimeline) {
    play(kText +
         "timeline:\n"
         "  - at: 1s\n"
         "    add:\n"
         "      vtis: [{name: Vxlan2, vtepV6: '2001:db8::9', vlans: {20: 10020}}]\n"
         "      udpDestinationPorts: [{payload: ipv6, port: 6081},\n"
         "                            {payload: ipv4, source: isis, port: 1}]\n"
         "      decapGroups: [{name: out, payload: ipv4, port: 7}]\n"
         "    change:\n"
         "      vtis: [{name: Vxlan1, vlans: {11: 10011}}]\n"
         "      udpDestinationPorts: [{payload: mpls, port: 6637}]\n"
         "      decapGroups: [{name: in, source: bgp, payload: mpls}]\n"
         "  - at: 2s\n"
         "    delete:\n"
         "      vtis: [Vxlan1]\n"
         "      udpDestinationPorts: [{payload: mpls}, {payload: ipv4, source: isis}]\n"
         "      decapGroups: [{name: in}, {name: tun, source: bgp}]\n");
    pass(999ms);
    EXPECT_EQ(view().udpPorts(kPorts), "1:6635/1 3:6080/0");
    pass(1ms);
    EXPECT_EQ(view().vtis(), "Vxlan1 10.9.0.1/ 11:10011\nVxlan2 /2001:db8::9 20:10020");
    EXPECT_EQ(view().udpPorts(kPorts), "1:6637/1 3:6080/0 4:6081/1");
    EXPECT_EQ(view().udpPorts(kPortsOfBgp), "1:6636/1");
    EXPECT_EQ(view().udpPorts("routing/nexthopgroup/input/config/isis"), "3:1/1");
    EXPECT_EQ(view().decapGroups(kGroups), "in:1/6635 out:3/7");
    EXPECT_EQ(view().decapGroups(kGroupsOfBgp), "in:1/6081 tun:2/0");
    pass(1s);
    EXPECT_EQ(view().vtis(), "Vxlan2 /2001:db8::9 20:10020");
    EXPECT_EQ(view().udpPorts(kPorts), "3:6080/0 4:6081/1");
    EXPECT_EQ(view().udpPorts("routing/nexthopgroup/input/config/isis"), "none");
    EXPECT_EQ(view().decapGroups(kGroups), "out:3/7");
    EXPECT_EQ(view().decapGroups(kGroupsOfBgp), "in:1/6081");
}

TEST_F(ScenarioFeedTest, AStepTouchesOnlyTheTunnelConfigurationThatItNames) {
    play(kText + "timeline: [{at: 1s, change: {decapGroups: [{name: in, port: 6640}]}}]\n");
    const auto before = view().position();
    pass(1s);
    EXPECT_EQ(view().decapGroups(kGroups), "in:1/6640");
    EXPECT_EQ(view().position(), before + 1);
}

TEST_F(ScenarioFeedTest, EveryFieldOfANextHopArrives) {
    play(
        "scenario: 1\n"
        "interfaces: [{name: e1}]\n"
        "vrfs: [{name: red, id: 1001}]\n"
        "vtis: [{name: Vxlan1}]\n"
        "nextHops:\n"
        "  - {name: a, index: 1, interface: e1, address: 10.0.0.1, mac: '02:00:00:00:00:01',\n"
        "     labels: [100, 200], pop: true, encapOrder: [mpls, udp], mplsEncapLabels: [300, "
        "301],\n"
        "     gue: {source: '2001:db8::1', destination: '2001:db8::2', ttl: 64},\n"
        "     vxlan: {vti: Vxlan1, vlan: 16383}, decapVrf: 1001, decapHeader: udpv6,\n"
        "     fallbackVrf: default}\n");
    Stash::FlattenFecNextHop want;
    want.interface = Nexo::IntfId{"e1"};
    want.address = *Nexo::IpGenAddr::parse("10.0.0.1");
    want.mac = Nexo::EthAddr{std::array<std::uint8_t, 6>{2, 0, 0, 0, 0, 1}};
    want.labels.push(Nexo::MplsLabel{100});
    want.labels.push(Nexo::MplsLabel{200});
    want.encapOrder.push(Tunnel::TunnelTable::EncapType::mpls);
    want.encapOrder.push(Tunnel::TunnelTable::EncapType::udp);
    want.mplsEncapLabels = {Nexo::MplsLabel{300}, Nexo::MplsLabel{301}};
    want.gue = Stash::GueEncap{
        2, *Nexo::IpGenAddr::parse("2001:db8::1"), *Nexo::IpGenAddr::parse("2001:db8::2"), 64};
    want.vxlan = Stash::VxlanEncap{Nexo::IntfId{"Vxlan1"}, 16383};
    want.decapVrfId = Vrf::VrfId{1001};
    want.decapHeader = 6;
    want.fallbackVrfId = Vrf::VrfId{254};
    want.popTopLabel = true;
    EXPECT_EQ(view().nextHop(1), "0[0] " + Vel::toString(want));
}

TEST_F(ScenarioFeedTest, EncapsulationOfANextHopChanges) {
    play(
        "scenario: 1\n"
        "vrfs: [{name: red, id: 1001}, {name: blue, id: 1002}]\n"
        "nextHops:\n"
        "  - {name: a, index: 1, encapOrder: [mpls, udp], mplsEncapLabels: [300],\n"
        "     gue: {source: 192.0.2.1, destination: 192.0.2.2, ttl: 64}, decapVrf: red}\n"
        "timeline:\n"
        "  - at: 1s\n"
        "    change:\n"
        "      nextHops:\n"
        "        - {name: a, encapOrder: [udp], mplsEncapLabels: [], decapVrf: blue,\n"
        "           gue: {source: '2001:db8::1', destination: '2001:db8::2'}}\n"
        "  - {at: 2s, change: {nextHops: [{name: a, encapOrder: [], gue: null, decapVrf: 0,\n"
        "                                  vxlan: {vti: Vxlan1, vlan: 10}}]}}\n"
        "  - {at: 3s, change: {nextHops: [{name: a, vxlan: null}]}}\n");
    pass(1s);
    Stash::FlattenFecNextHop udp;
    udp.encapOrder.push(Tunnel::TunnelTable::EncapType::udp);
    udp.gue = Stash::GueEncap{2,
                              *Nexo::IpGenAddr::parse("2001:db8::1"),
                              *Nexo::IpGenAddr::parse("2001:db8::2"),
                              64};  // not given: as before
    udp.decapVrfId = Vrf::VrfId{1002};
    EXPECT_EQ(view().nextHop(1), "0[0] " + Vel::toString(udp));
    pass(1s);
    Stash::FlattenFecNextHop vxlan;
    vxlan.vxlan = Stash::VxlanEncap{Nexo::IntfId{"Vxlan1"}, 10};
    EXPECT_EQ(view().nextHop(1), "0[0] " + Vel::toString(vxlan));
    pass(1s);
    EXPECT_EQ(view().nextHop(1), "0[0] " + Vel::toString(Stash::FlattenFecNextHop{}));
}

TEST_F(ScenarioFeedTest, ReadinessComesAfterTheData) {
    startText(kText);  // does not run
    Problems problems{"f"};
    FileSource source{*parseScenario(kText, problems)};
    Store::Writer writer{environment};
    ScenarioPublish publish{source, writer, clock};
    ASSERT_EQ(publish.open(), "");
    while (view().fecReady() == "none") {
        EXPECT_EQ(view().fibReady("default"), "none");
        ASSERT_TRUE(publish.run([] { return true; }));
    }
    EXPECT_EQ(view().fecReady(), "true");
    EXPECT_EQ(view().nextHops(), 4U);
    EXPECT_EQ(view().route("red", "2001:db8:1::/48"), "42 STATIC");
}

TEST_F(ScenarioFeedTest, RestartIsSilent) {
    play(kText);
    const auto before = view().position();
    const auto everything = view().everything();
    play(kText);
    EXPECT_EQ(view().position(), before);
    EXPECT_EQ(view().everything(), everything);
}

TEST_F(ScenarioFeedTest, NextHopsWithoutIndexKeepTheirNumberWhateverElseThereIs) {
    const std::string head = "scenario: 1\ninterfaces: [{name: e1}]\nnextHops:\n";
    play(head + "  - {name: x, interface: e1}\n");
    const auto index = derivedIndex("x").value();
    EXPECT_GE(index, kFirstDerivedIndex);
    EXPECT_LT(index, std::uint64_t{1} << 48U);
    EXPECT_THAT(view().nextHop(index), HasSubstr("e1"));
    play(head + "  - {name: w}\n  - {name: x, interface: e1}\n");
    EXPECT_THAT(view().nextHop(index), HasSubstr("e1"));
    EXPECT_EQ(view().nextHops(), 2U);
}

TEST_F(ScenarioFeedTest, WhatTheScenarioHasNoMoreIsDeleted) {
    play(kText);
    const auto before = view().position();
    play(
        "scenario: 1\n"
        "nextHops: [{name: a, index: 1}]\n"
        "fecs: [{id: 41, members: [a]}]\n"
        "routes: [{prefix: 10.3.0.0/16, fec: 41}]\n");
    EXPECT_GT(view().position(), before);
    EXPECT_EQ(view().nextHops(), 1U);
    EXPECT_EQ(view().fecs(), 1U);
    EXPECT_EQ(view().route("default", "10.1.0.0/16"), "none");
    EXPECT_EQ(view().route("default", "10.3.0.0/16"), "41 ");
    EXPECT_EQ(view().vrfName(1001), "none");
    EXPECT_THAT(view().routeTables(), UnorderedElementsAre("routing/status", "routing6/status"));
    EXPECT_EQ(view().counter(kFec | 41, 1), 0U);
    EXPECT_FALSE(view().entity("interface/status/eth/vxlan"));
}

TEST_F(ScenarioFeedTest, KernelNeverGetsANumberThatAScenarioUsed) {
    play(kText);
    Store::Writer writer{environment};
    FlatStore store{writer, 1};
    EXPECT_EQ(store.firstFreeIndex(), 5U);
}

/// The kernel's end of a store, up to where it would begin.
std::string kernelOpens(const std::shared_ptr<Store::Environment>& environment,
                        const Kiln::Clock& clock) {
    Store::Writer writer{environment};
    Fib fib;
    Flatten flatten{fib};
    return Publish{flatten, writer, clock}.open();
}

TEST_F(ScenarioFeedTest, AKernelDoesNotPublishIntoAScenariosStore) {
    play(kText);
    const auto everything = view().everything();
    EXPECT_EQ(
        kernelOpens(environment, clock),
        "the store " + options.directory.string() +
            " belongs to the source 'scenario', not 'kernel': their next-hop numbers must not "
            "mix. Use another root, or remove " +
            options.directory.string());
    EXPECT_EQ(view().everything(), everything);
}

TEST_F(ScenarioFeedTest, AScenarioDoesNotPublishIntoAKernelsStore) {
    std::string error;
    environment = Store::Environment::open(options, Store::Access::write, error);
    ASSERT_NE(environment, nullptr) << error;
    ASSERT_EQ(kernelOpens(environment, clock), "");
    ASSERT_EQ(kernelOpens(environment, clock), "");  // its own
    Problems problems{"f"};
    FileSource source{*parseScenario(kText, problems)};
    Store::Writer writer{environment};
    ScenarioPublish publish{source, writer, clock};
    EXPECT_THAT(publish.open(), HasSubstr("belongs to the source 'kernel', not 'scenario'"));
    EXPECT_EQ(view().nextHops(), 0U);
}

TEST_F(ScenarioFeedTest, StepsHappenAtTheirTimes) {
    play(kText +
         "timeline:\n"
         "  - at: 1.5s\n"
         "    ready: {fecReady: false, fibReady: {red: false}}\n"
         "    add:\n"
         "      nextHops: [{name: e, index: 9, interface: e1}]\n"
         "      routes: [{prefix: 10.4.0.0/16, fec: 42}]\n"
         "    change:\n"
         "      nextHops: [{name: a, mac: '02:00:00:00:00:99'}]\n"
         "      fecs: [{id: 41, members: [{nextHop: b, weight: 5}, e]}]\n"
         "  - at: 2s\n"
         "    delete: {routes: [{prefix: 10.1.0.0/16}], fecs: [41], nextHops: [a, e]}\n"
         "    ready: {fecReady: true}\n");
    pass(1499ms);
    EXPECT_EQ(view().fec(kFec | 41), "top programmed 7 blue/2: 1w1 2w3");
    EXPECT_EQ(view().fecReady(), "true");
    pass(1ms);
    EXPECT_EQ(view().fec(kFec | 41), "top programmed 7 blue/2: 2w5 9w1");
    EXPECT_THAT(view().nextHop(1), HasSubstr("02:00:00:00:00:99"));
    EXPECT_THAT(view().nextHop(1), HasSubstr("10.0.0.1"));         // the rest of it stays
    EXPECT_THAT(view().nextHop(1), testing::StartsWith("0[0] "));  // in no FEC any more
    EXPECT_THAT(view().nextHop(2), testing::StartsWith("41[0] "));
    EXPECT_EQ(view().counter(kFec | 41, 0), 2U);
    EXPECT_EQ(view().counter(kFec | 41, 1), 9U);
    EXPECT_EQ(view().route("default", "10.4.0.0/16"), "42 ");
    EXPECT_EQ(view().fecReady(), "false");
    EXPECT_EQ(view().fibReady("red"), "false");
    pass(500ms);
    EXPECT_EQ(view().fec(kFec | 41), "none");
    EXPECT_EQ(view().nextHop(1), "none");
    EXPECT_EQ(view().nextHop(9), "none");
    EXPECT_THAT(view().nextHop(2), testing::StartsWith("42[0] "));  // its next FEC counts it now
    EXPECT_EQ(view().route("default", "10.1.0.0/16"), "none");
    EXPECT_EQ(view().fecReady(), "true");
}

TEST_F(ScenarioFeedTest, TimelineRepeatsAsOftenAsItIsTold) {
    play(kText +
         "repeat: {every: 10s, times: 3}\n"
         "timeline:\n"
         "  - {at: 1s, delete: {routes: [{prefix: 10.1.0.0/16}]}}\n"
         "  - {at: 2s, add: {routes: [{prefix: 10.1.0.0/16, fec: 41}]}}\n");
    std::string seen;
    for (int second = 0; second < 40; ++second) {
        pass(1s);
        seen += view().route("default", "10.1.0.0/16") == "none" ? 'x' : '.';
    }
    EXPECT_EQ(seen, "x.........x.........x...................");
}

TEST_F(ScenarioFeedTest, RoundsOfAPauseAreNotMadeUpFor) {
    play(kText +
         "repeat: {every: 10s}\n"
         "timeline:\n"
         "  - {at: 1s, delete: {routes: [{prefix: 10.1.0.0/16}]}}\n"
         "  - {at: 2s, add: {routes: [{prefix: 10.1.0.0/16, fec: 41}]}}\n");
    pass(10h);
    EXPECT_LT(feed->publish().statistics().transactions, 10U);
    pass(1s);
    EXPECT_EQ(view().route("default", "10.1.0.0/16"), "none");
}

TEST_F(ScenarioFeedTest, VrfComesAndGoes) {
    play(
        "scenario: 1\n"
        "fecs: [{id: 1}]\n"
        "timeline:\n"
        "  - at: 1s\n"
        "    add: {vrfs: [{name: red, id: 7}], routes: [{vrf: red, prefix: 10.0.0.0/8, fec: 1}]}\n"
        "  - at: 2s\n"
        "    delete: {vrfs: [red], routes: [{vrf: red, prefix: 10.0.0.0/8}]}\n");
    EXPECT_EQ(view().vrfName(7), "none");
    pass(1s);
    EXPECT_EQ(view().vrfName(7), "red");
    EXPECT_EQ(view().fibReady("red"), "true");
    EXPECT_EQ(view().route("red", "10.0.0.0/8"), "1 ");
    pass(1s);
    EXPECT_EQ(view().vrfName(7), "none");
    EXPECT_EQ(view().fibReady("red"), "none");
    EXPECT_THAT(view().routeTables(), UnorderedElementsAre("routing/status", "routing6/status"));
}

TEST_F(ScenarioFeedTest, InvalidRecordsArriveAsTheyAreDescribed) {
    const std::string text =
        "scenario: 1\ninvalid: allow\n"
        "vrfs: [{name: " +
        std::string(150, 'v') +
        ", id: 5}]\n"
        "nextHops:\n"
        "  - {name: a, index: 1, labels: [1,2,3,4,5,6,7,8,9,10,11,12,13,14,15]}\n"
        "  - {name: b, index: 2, vxlan: {vti: Vxlan1, vlan: 16384}, encapOrder: [17]}\n"
        "  - {name: c, index: 3, interface: e, truncate: 10}\n"
        "  - {name: d, index: 4, decapVrf: 77}\n"
        "udpDestinationPorts: [{payload: 2, port: 0, mode: 9}]\n"
        "decapGroups: [{name: in, payload: 99, port: 0}]\n"
        "vtis: [{name: Vxlan1, vtep: '2001:db8::9', vtepV6: 10.9.0.1, vlans: {16384: 16777216}}]\n"
        "interfaces: [{name: e}]\n"
        "fecs:\n"
        "  - {id: 1, members: [{nextHop: a, weight: 0}, nobody]}\n"
        "  - {id: 2, truncate: 3}\n"
        "routes: [{prefix: 10.0.0.0/8, fec: 77}]\n";
    play(text);
    EXPECT_THAT(view().nextHop(1), HasSubstr("14, 15]"));
    EXPECT_THAT(view().nextHop(2), testing::AllOf(HasSubstr("16384"), HasSubstr("[17]")));
    EXPECT_THAT(view().nextHop(3), HasSubstr("corrupt"));
    EXPECT_EQ(view().fec(kFec | 1),
              "top programmed 0 /0: 1w0 " + derivedIndex("nobody").stringValue() + "w1");
    EXPECT_THAT(view().fec(kFec | 2), HasSubstr("corrupt"));
    EXPECT_EQ(view().route("default", "10.0.0.0/8"), "77 ");
    EXPECT_EQ(view().vrfName(5), "none");  // does not verify
    EXPECT_THAT(view().nextHop(4), HasSubstr("decapVrfId: 77"));
    EXPECT_EQ(view().udpPorts(kPorts), "2:0/9");
    EXPECT_EQ(view().decapGroups(kGroups), "in:99/0");
    EXPECT_EQ(view().vtis(), "Vxlan1 2001:db8::9/10.9.0.1 16384:16777216");
    EXPECT_THAT(view().routeTables(),
                testing::Contains("routing/vrf/status/" + std::string(150, 'v')));
    const auto before = view().position();
    play(text);
    EXPECT_EQ(view().position(), before);
    play("scenario: 1\n");  // leaves nothing behind
    EXPECT_THAT(view().routeTables(), UnorderedElementsAre("routing/status", "routing6/status"));
    EXPECT_THAT(view().everything(), IsEmpty());
}

TEST_F(ScenarioFeedTest, FullStoreStopsSaysSoAndGoesOn) {
    options.mapBytes = std::size_t{3} << 20U;
    std::string members = "a";
    for (int i = 0; i < 20'000; ++i) { members += ", a"; }  // a record of 320,000 bytes
    play("invalid: allow\n" + kText + "timeline: [{at: 1s, add: {fecs: [{id: 99, members: [" +
         members + "]}]}}]\n");
    EXPECT_THAT(told, IsEmpty());
    Store::Writer filler{environment};
    const auto table = filler.tableIs("filler", "filler", Store::TableKind::content);
    for (int i = 0; filler.commit().empty(); ++i) {
        ASSERT_LT(i, 1000);
        filler.put(table, std::to_string(i), std::string(8000, 'x'));
    }
    pass(1s);
    EXPECT_THAT(told, ElementsAre(HasSubstr("publishing stands still")));
    EXPECT_EQ(view().route("default", "10.1.0.0/16"), "41 BGP");  // what was there is served
    EXPECT_EQ(view().fecs(), 3U);
    filler.tableDel("filler");
    ASSERT_EQ(filler.commit(), "");
    settle();
    EXPECT_THAT(told, testing::SizeIs(1));  // not before its time
    pass(2s);  // what a transaction frees can be used from the one after the next on
    EXPECT_THAT(told, ElementsAre(HasSubstr("stands still"), "publishing goes on"));
    EXPECT_EQ(view().fecs(), 4U);
}

TEST_F(ScenarioFeedTest, WorksInSlicesOfOneTransaction) {
    startText(kText);
    scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>());
    settle();
    EXPECT_TRUE(feed->publish().ready());
    EXPECT_EQ(view().fecReady(), "true");
}

}  // namespace
}  // namespace Pel::Forwarder

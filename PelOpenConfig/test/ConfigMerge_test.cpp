#include <optional>

#include "PelOpenConfig/DecapGroupConfigMergeSm.h"
#include "PelOpenConfig/NexthopGroupCliDynamicConfigUdpDestPortMergeSm.h"
#include "PelOpenConfig/test/TunnelConfigFixture.h"

namespace Pel::Oc {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

constexpr auto kMpls = PayloadType::mpls;
constexpr auto kIpv4 = PayloadType::ipv4;
constexpr auto kIpv6 = PayloadType::ipv6;

class UdpPortMerge : public TunnelConfigFixture {
protected:
    void start() {
        control.scheduler = scheduler;
        sut = NexthopGroupCliDynamicConfigUdpDestPortMergeSmIs(
            merged, udpConfig(), dirOf(kUdpDynamic), control);
        onRecord = merged->onRecord().subscribe([this] { ++publications; });
    }
    static std::string child(const char* name) { return std::string{kUdpDynamic} + "/" + name; }
    const Ports& ports() const { return merged->record().payloadTypeToPort; }

    Vel::Ref<UdpConfig> merged = Vel::make<UdpConfig>("udpDestPort");
    Lmo::SmControl control;
    Vel::Ref<NexthopGroupCliDynamicConfigUdpDestPortMergeSm> sut;
    int publications = 0;
    Vel::Subscription onRecord;
};

TEST_F(UdpPortMerge, WhatIsThereAtTheStartIsMergedAtOnce) {
    udp(UdpConfig::kPath, {{kIpv4, {6080, 1}}});
    udp(child("bgp"), {{kIpv6, {6081, 0}}});
    control.scheduler = scheduler;
    sut = NexthopGroupCliDynamicConfigUdpDestPortMergeSmIs(
        merged, udpConfig(), dirOf(kUdpDynamic), control);
    EXPECT_EQ(ports(), (Ports{{kIpv4, {6080, 1}}, {kIpv6, {6081, 0}}}));
}

TEST_F(UdpPortMerge, TheConfiguredPortWinsOverADynamicOneOfItsPayloadType) {
    udp(child("a"), {{kIpv4, {1, 0}}, {kIpv6, {2, 0}}});
    udp(UdpConfig::kPath, {{kIpv4, {6080, 1}}});
    start();
    EXPECT_EQ(ports(), (Ports{{kIpv4, {6080, 1}}, {kIpv6, {2, 0}}}));
    withdraw(UdpConfig::kPath);
    EXPECT_EQ(ports(), (Ports{{kIpv4, {1, 0}}, {kIpv6, {2, 0}}}));
}

TEST_F(UdpPortMerge, AmongDynamicSourcesTheFirstByNameWins) {
    udp(child("b"), {{kIpv4, {2, 0}}, {kIpv6, {22, 0}}});
    start();
    EXPECT_EQ(ports().at(kIpv4).port, 2);
    udp(child("a"), {{kIpv4, {1, 0}}});
    EXPECT_EQ(ports().at(kIpv4).port, 1);
    udp(child("c"), {{kIpv4, {3, 0}}, {kMpls, {33, 0}}});
    EXPECT_EQ(ports(), (Ports{{kMpls, {33, 0}}, {kIpv4, {1, 0}}, {kIpv6, {22, 0}}}));
}

TEST_F(UdpPortMerge, SourcesComeChangeAndGo) {
    start();
    EXPECT_THAT(ports(), IsEmpty());
    udp(child("bgp"), {{kMpls, {6635, 0}}});
    EXPECT_EQ(ports(), (Ports{{kMpls, {6635, 0}}}));
    udp(child("bgp"), {{kMpls, {6636, 0}}});
    EXPECT_EQ(ports(), (Ports{{kMpls, {6636, 0}}}));
    withdraw(child("bgp"));
    EXPECT_THAT(ports(), IsEmpty());
}

TEST_F(UdpPortMerge, AnEqualOutcomePublishesNothing) {
    udp(UdpConfig::kPath, {{kIpv4, {6080, 1}}});
    start();
    udp(child("bgp"), {{kIpv4, {1, 0}}});
    EXPECT_EQ(publications, 0);
    udp(child("bgp"), {{kIpv6, {1, 0}}});
    EXPECT_EQ(publications, 1);
}

TEST_F(UdpPortMerge, ManyChangesBeforeTheTaskRunsAreOneMerge) {
    start();
    for (std::uint16_t port = 1; port <= 5; ++port) {
        dirOf(kUdpDynamic)->onChange().publish();
        udpConfig()->recordIs({{{kIpv4, {port, 1}}}});
    }
    EXPECT_EQ(publications, 0);
    settle();
    EXPECT_EQ(publications, 1);
    EXPECT_EQ(ports().at(kIpv4).port, 5);
    EXPECT_EQ(scheduler->tasks().back().name, "NexthopGroupCliDynamicConfigUdpDestPortMergeSmTask");
    EXPECT_EQ(scheduler->tasks().back().runs, 1U);
}

TEST_F(UdpPortMerge, TheTaskHasThePriorityOfTheControlRecord) {
    control.taskPriority = 5;
    start();
    EXPECT_EQ(scheduler->tasks().back().priority, 5);
}

TEST_F(UdpPortMerge, ASynchronousControlMergesAtOnceWithoutAScheduler) {
    control.synchronous = Lmo::Synchronous::synchronous;
    sut = NexthopGroupCliDynamicConfigUdpDestPortMergeSmIs(
        merged, udpConfig(), dirOf(kUdpDynamic), control);
    udpConfig()->recordIs({{{kIpv4, {6080, 1}}}});
    EXPECT_EQ(ports(), (Ports{{kIpv4, {6080, 1}}}));
}

TEST_F(UdpPortMerge, WithoutInputsTheOutcomeIsEmpty) {
    control.scheduler = scheduler;
    sut = NexthopGroupCliDynamicConfigUdpDestPortMergeSmIs(merged, nullptr, nullptr, control);
    settle();
    EXPECT_THAT(ports(), IsEmpty());
}

TEST_F(UdpPortMerge, ASwitchedOffMachineWritesNothingAnyMore) {
    start();
    udpConfig()->recordIs({{{kIpv4, {6080, 1}}}});  // the merge is scheduled
    sut->hasNotificationActiveIs(false);
    settle();
    udp(child("bgp"), {{kIpv6, {1, 0}}});
    EXPECT_THAT(ports(), IsEmpty());
}

TEST_F(UdpPortMerge, WhoIsToldMayLetGoOfTheMachine) {
    start();
    const auto drop = merged->onRecord().subscribe([this] { sut = nullptr; });
    udp(child("bgp"), {{kIpv6, {1, 0}}});
    EXPECT_EQ(sut, nullptr);
    EXPECT_EQ(ports(), (Ports{{kIpv6, {1, 0}}}));
}

TEST_F(UdpPortMerge, AForeignChildIsTracedOnceAndIgnored) {
    start();
    const std::string text = "config: odd is no source of configuration; ignored";
    foreign(child("odd"));
    EXPECT_EQ(traces.count(text), 1U);
    udp(child("sound"), {{kIpv6, {1, 0}}});
    EXPECT_EQ(ports(), (Ports{{kIpv6, {1, 0}}}));
    EXPECT_EQ(traces.count(text), 1U);
    withdraw(child("odd"));
    foreign(child("odd"));
    EXPECT_EQ(traces.count(text), 2U);
    // A child that becomes a source is one.
    udp(child("odd"), {{kIpv4, {2, 0}}});
    EXPECT_EQ(ports(), (Ports{{kIpv4, {2, 0}}, {kIpv6, {1, 0}}}));
}

using ConfigMergeDeathTest = UdpPortMerge;

TEST_F(ConfigMergeDeathTest, WithoutASchedulerOnlyASynchronousMachineRuns) {
    EXPECT_DEATH(NexthopGroupCliDynamicConfigUdpDestPortMergeSmIs(
                     merged, udpConfig(), dirOf(kUdpDynamic), Lmo::SmControl{}),
                 "control.scheduler != nullptr");
}

class DecapMerge : public TunnelConfigFixture {
protected:
    void start() {
        sut = DecapGroupConfigMergeSmIs(merged, cli(), dirOf(kDecapDynamic), entityManager);
    }
    static std::string child(const char* name) { return std::string{kDecapDynamic} + "/" + name; }
    const Groups& groups() const { return merged->record().decapGroup; }

    Vel::Ref<Tunnel::Decap::Config> merged = Vel::make<Tunnel::Decap::Config>("dgConfig");
    Vel::Ref<DecapGroupConfigMergeSm> sut;
};

TEST_F(DecapMerge, TheCommandLinesGroupWinsOverADynamicOneOfItsName) {
    decap(DecapInput::kPath, {{"west", {kMpls, 6635}}});
    decap(child("bgp"), {{"west", {kIpv4, 1}}, {"east", {kIpv6, 2}}});
    start();
    EXPECT_THAT(groups(),
                ElementsAre(Pair("east", Tunnel::Decap::DecapGroup{kIpv6, 2}),
                            Pair("west", Tunnel::Decap::DecapGroup{kMpls, 6635})));
    decap(DecapInput::kPath, {});
    EXPECT_EQ(groups().at("west").dPort, 1);
}

TEST_F(DecapMerge, AmongDynamicSourcesTheFirstByNameWinsWhereverItStands) {
    start();
    decap(child("b"), {{"g", {kMpls, 2}}});
    decap(child("a/z"), {{"g", {kMpls, 1}}});
    EXPECT_EQ(groups().at("g").dPort, 1);
    decap(child("a/y"), {{"g", {kMpls, 3}}});
    EXPECT_EQ(groups().at("g").dPort, 3);
    withdraw(child("a/y"));
    EXPECT_EQ(groups().at("g").dPort, 1);
    withdraw(child("a/z"));
    EXPECT_EQ(groups().at("g").dPort, 2);
}

TEST_F(DecapMerge, SourcesComeChangeAndGo) {
    start();
    decap(child("bgp"), {{"g", {kMpls, 1}}});
    decap(child("bgp"), {{"g", {kMpls, 2}}, {"h", {kIpv4, 3}}});
    EXPECT_EQ(groups().size(), 2U);
    decap(child("bgp"), {{"h", {kIpv4, 3}}});
    EXPECT_THAT(groups(), ElementsAre(Pair("h", Tunnel::Decap::DecapGroup{kIpv4, 3})));
    withdraw(child("bgp"));
    EXPECT_THAT(groups(), IsEmpty());
}

TEST_F(DecapMerge, AForeignChildIsTracedWithItsPathAndIgnored) {
    start();
    foreign(child("deep/odd"));
    EXPECT_EQ(traces.count("dynamic: deep/odd is no source of configuration; ignored"), 1U);
    EXPECT_THAT(groups(), IsEmpty());
}

TEST_F(DecapMerge, RunsInATaskOfTheEntityManagersScheduler) {
    start();
    cli()->recordIs(Mesa::RecordCodec<Tunnel::Decap::ConfigRecord>::encode({{{"g", {kMpls, 1}}}}));
    EXPECT_THAT(groups(), IsEmpty());
    settle();
    EXPECT_EQ(groups().size(), 1U);
    EXPECT_EQ(scheduler->tasks().back().name, "DecapGroupConfigMergeSmTask");
}

}  // namespace
}  // namespace Pel::Oc

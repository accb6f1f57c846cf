#include "forwarder/Scenario/ScenarioFeed.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "forwarder/Flatten/Fib.h"
#include "forwarder/Publish/Publish.h"
#include "forwarder/Scenario/Description.h"
#include "forwarder/Scenario/FileSource.h"
#include "forwarder/Scenario/test/FeedBed.h"

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
    "nextHops:\n"
    "  - {name: a, index: 1, interface: e1, address: 10.0.0.1, mac: '02:00:00:00:00:01'}\n"
    "  - {name: b, index: 2, interface: e1.7, address: '2001:db8::2', labels: [100, 200],\n"
    "     pop: true, decapVrf: 1001, decapHeader: mpls, fallbackVrf: 9}\n"
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

class ScenarioFeedTest : public FeedBed {
protected:
    void startText(const std::string& text) {
        Problems problems{"f.yaml"};
        auto scenario = parseScenario(text, problems);
        ASSERT_THAT(problems.lines(), IsEmpty());
        start(std::make_unique<FileSource>(std::move(*scenario)));
    }
    void play(const std::string& text) {
        startText(text);
        settle();
    }
};

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

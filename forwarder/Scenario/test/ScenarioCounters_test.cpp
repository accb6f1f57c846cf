#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "forwarder/Scenario/Description.h"
#include "forwarder/Scenario/test/FeedBed.h"
#include "forwarder/Scenario/test/ParsedScenario.h"

namespace Pel::Forwarder {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr std::uint64_t kTunnel = std::uint64_t{0x18005} << 32U;

/// Next hops a (1) and b (2) in FEC 41, and a tunnel over a.
const std::string kCounted =
    "scenario: 1\n"
    "nextHops: [{name: a, index: 1}, {name: b, index: 2}, {name: c, index: 3}]\n"
    "fecs: [{id: 41, members: [a, b]}, {id: ipInIpTunnel/5, members: [a]}]\n";

class ScenarioCounters : public FeedBed {};

TEST_F(ScenarioCounters, ValuesAreThereFromTheBeginning) {
    play(kCounted +
         "counters: [{nextHop: a, packets: 7, octets: 700}, {fec: ipInIpTunnel/5, packets: 9}]\n");
    EXPECT_EQ(view().traffic(1), "7/700");
    EXPECT_EQ(view().traffic(2), "none");
    EXPECT_EQ(view().traffic(kTunnel), "9/0");
    pass(20s);
    EXPECT_EQ(view().traffic(1), "7/700");
}

TEST_F(ScenarioCounters, RatesCountEverySecond) {
    play(kCounted +
         "counters: [{nextHop: a, packets: 7, packetRate: 10, octetRate: 640},\n"
         "           {fec: ipInIpTunnel/5, octetRate: 3}]\n");
    pass(999ms);
    EXPECT_EQ(view().traffic(1), "7/0");
    pass(1ms);
    EXPECT_EQ(view().traffic(1), "17/640");
    EXPECT_EQ(view().traffic(kTunnel), "0/3");
    pass(1s);
    EXPECT_EQ(view().traffic(1), "27/1280");
    pass(100s);  // a pause is made up for
    EXPECT_EQ(view().traffic(1), "1027/65280");
    EXPECT_EQ(view().traffic(kTunnel), "0/306");
}

TEST_F(ScenarioCounters, ADerivedIndexIsCountedToo) {
    play(
        "scenario: 1\nnextHops: [{name: n}]\nfecs: [{id: 1, members: [n]}]\n"
        "counters: [{nextHop: n, packets: 3}]\n");
    EXPECT_EQ(view().traffic(derivedIndex("n").value()), "3/0");
}

TEST_F(ScenarioCounters, WrapWhereTheyAreTold) {
    play(kCounted +
         "counters: [{nextHop: a, packets: 4294967295, octets: 4294967290, packetRate: 1, "
         "octetRate: 100, wrap: 4294967296},\n"
         "           {nextHop: b, packets: 18446744073709551615, packetRate: 2}]\n");
    EXPECT_EQ(view().traffic(1), "4294967295/4294967290");
    pass(1s);
    EXPECT_EQ(view().traffic(1), "0/94");
    EXPECT_EQ(view().traffic(2), "1/0");
    pass(5'000'000s);
    EXPECT_EQ(view().traffic(1), "5000000/500000094");
}

TEST_F(ScenarioCounters, AValueBeyondTheWrapBeginsWithinIt) {
    play(kCounted + "counters: [{nextHop: a, packets: 107, wrap: 100}]\n");
    EXPECT_EQ(view().traffic(1), "7/0");
}

TEST_F(ScenarioCounters, TheTimelineSetsValuesAndRatesAndTheRestGoesOn) {
    play(kCounted +
         "counters: [{nextHop: a, packetRate: 10, octetRate: 100}]\n"
         "timeline:\n"
         "  - {at: 2s, change: {counters: [{nextHop: a, packetRate: 1}]}}\n"
         "  - {at: 4s, change: {counters: [{nextHop: a, packets: 5}]},\n"
         "     add: {counters: [{nextHop: b, packets: 1}]}}\n"
         "  - {at: 6s, delete: {counters: [{nextHop: a}, {nextHop: b}]}}\n");
    pass(1s);
    EXPECT_EQ(view().traffic(1), "10/100");
    pass(1s);
    EXPECT_EQ(view().traffic(1), "20/200");
    pass(1s);
    EXPECT_EQ(view().traffic(1), "21/300");
    pass(1s);
    EXPECT_EQ(view().traffic(1), "5/400");
    EXPECT_EQ(view().traffic(2), "1/0");
    pass(1s);
    EXPECT_EQ(view().traffic(1), "6/500");
    pass(1s);
    EXPECT_EQ(view().counters(), 0U);
    pass(10s);
    EXPECT_EQ(view().counters(), 0U) << "nothing counts on";
}

TEST_F(ScenarioCounters, RepeatedRoundsSetTheSameValuesAgain) {
    play(kCounted +
         "timeline:\n"
         "  - {at: 1s, add: {counters: [{nextHop: a, packets: 5, packetRate: 1}]}}\n"
         "repeat: {every: 10s}\n");
    pass(1s);
    EXPECT_EQ(view().traffic(1), "5/0");
    pass(9s);
    EXPECT_EQ(view().traffic(1), "14/0");
    pass(1s);
    EXPECT_EQ(view().traffic(1), "5/0");
}

TEST_F(ScenarioCounters, GoWithWhatTheyCount) {
    play(kCounted +
         "counters: [{nextHop: a, packetRate: 1}, {fec: ipInIpTunnel/5, packetRate: 1}]\n"
         "timeline:\n"
         "  - {at: 3s, change: {fecs: [{id: 41, members: [b]}]},\n"
         "     delete: {fecs: [ipInIpTunnel/5], nextHops: [a]}}\n");
    pass(2s);
    EXPECT_EQ(view().counters(), 2U);
    pass(1s);
    EXPECT_EQ(view().counters(), 0U);
    pass(5s);
    EXPECT_EQ(view().counters(), 0U) << "nothing counts on";
}

TEST_F(ScenarioCounters, MayBeDeletedBesideWhatTheyCount) {
    play(kCounted +
         "counters: [{nextHop: a, packetRate: 1}]\n"
         "timeline:\n"
         "  - {at: 1s, change: {fecs: [{id: 41, members: [b]}, {id: ipInIpTunnel/5, members: "
         "[]}]},\n"
         "     delete: {nextHops: [a], counters: [{nextHop: a}]}}\n");
    pass(1s);
    EXPECT_EQ(view().counters(), 0U);
}

TEST_F(ScenarioCounters, WhatTheFileNoLongerHasIsGoneAfterARestart) {
    play(kCounted + "counters: [{nextHop: a, packets: 1}, {nextHop: b, packets: 2}]\n");
    play(kCounted + "counters: [{nextHop: b, packets: 2}]\n");
    EXPECT_EQ(view().traffic(1), "none");
    EXPECT_EQ(view().traffic(2), "2/0");
}

TEST_F(ScenarioCounters, ThoseThatStandStillAreToldAgainWithinAMinute) {
    play(kCounted + "counters: [{nextHop: a, packets: 1}, {fec: ipInIpTunnel/5, packets: 1}]\n");
    view();
    for (int second = 0; second < 60; ++second) { pass(1s); }
    EXPECT_GE(view().told(1), 1U);
    EXPECT_GE(view().told(kTunnel), 1U);
}

TEST_F(ScenarioCounters, AnIndexThatNoHealthyProducerPublishesNeedsToBeAllowed) {
    const std::string counter = "counters: [{index: 0x4000000000001, packets: 5}]\n";
    EXPECT_THAT(parse(kCounted + counter).problems,
                ElementsAre("f.yaml:4:20: 'index' of a counter needs 'invalid: allow'"));
    play(kCounted + "invalid: allow\n" + counter);
    EXPECT_EQ(view().traffic(0x4000000000001), "5/0");
}

TEST(ScenarioCounterProblems, AreNamedWithTheirPlaces) {
    const auto problems = [](const std::string& counters) {
        return parse(kCounted + "counters:\n" + counters).problems;
    };
    EXPECT_THAT(problems("  - {nextHop: d}\n"),
                ElementsAre("f.yaml:5:5: there is no next hop 'd'"));
    EXPECT_THAT(problems("  - {nextHop: c}\n"),
                ElementsAre("f.yaml:5:5: the next hop 'c' is in no FEC, and so is not counted"));
    EXPECT_THAT(problems("  - {fec: ipInIpTunnel/6}\n"),
                ElementsAre("f.yaml:5:5: there is no FEC ipInIpTunnel/6"));
    EXPECT_THAT(
        problems("  - {fec: 41}\n"),
        ElementsAre(
            "f.yaml:5:11: expected a tunnel, ipInIpTunnel/1 to ipInIpTunnel/4095, not '41'"));
    EXPECT_THAT(
        problems("  - {fec: ipInIpTunnel/4096}\n"),
        ElementsAre("f.yaml:5:11: expected a tunnel, ipInIpTunnel/1 to ipInIpTunnel/4095, not "
                    "'ipInIpTunnel/4096'"));
    EXPECT_THAT(
        problems("  - {packets: 1}\n"),
        ElementsAre("f.yaml:5:5: expected a map with one of the keys nextHop and fec, not a "
                    "map"));
    EXPECT_THAT(problems("  - {nextHop: a}\n  - {nextHop: a}\n"),
                ElementsAre("f.yaml:6:5: counter of the next hop 'a' is there already"));
    EXPECT_THAT(problems("  - {nextHop: a, wrap: 0}\n"),
                ElementsAre("f.yaml:5:24: expected a whole number from 1 to 18446744073709551615, "
                            "not '0'"));
    EXPECT_THAT(
        parse(kCounted + "timeline:\n  - {at: 1s, change: {counters: [{nextHop: a}]}}\n").problems,
        ElementsAre("f.yaml:5:34: there is no counter of the next hop 'a'"));
    EXPECT_THAT(
        parse(kCounted + "counters: [{nextHop: b}]\n"
                         "timeline:\n  - {at: 1s, change: {fecs: [{id: 41, members: [a]}]}}\n")
            .problems,
        ElementsAre("f.yaml:4:12: the next hop 'b' is in no FEC, and so is not counted"));
}

}  // namespace
}  // namespace Pel::Forwarder

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "forwarder/Scenario/Generator.h"
#include "forwarder/Scenario/test/FeedBed.h"
#include "forwarder/Scenario/test/ParsedScenario.h"

namespace Pel::Forwarder {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

constexpr const char* kRed4 = "routing/vrf/status/red";
constexpr const char* kRed6 = "routing6/vrf/status/red";

class ScenarioQuiesced : public FeedBed {};

TEST_F(ScenarioQuiesced, TablesHaveQuiescedUnlessSaidOtherwise) {
    play(kBase + "ready: {quiesced: {red: {ipv4: false, ipv6: never}}}\n");
    EXPECT_EQ(view().quiesced("routing/status"), "true");
    EXPECT_EQ(view().quiesced("routing6/status"), "true");
    EXPECT_EQ(view().quiesced(kRed4), "false");
    EXPECT_EQ(view().quiesced(kRed6), "none");
}

TEST_F(ScenarioQuiesced, TheTimelineSaysItLaterAndTakesItBack) {
    play(kBase +
         "ready: {quiesced: {red: {ipv4: never, ipv6: false}}}\n"
         "timeline:\n"
         "  - {at: 1s, ready: {quiesced: {red: {ipv4: true, ipv6: true}}}}\n"
         "  - {at: 2s, ready: {quiesced: {red: {ipv4: false, ipv6: never}}}}\n");
    EXPECT_EQ(view().quiesced(kRed4), "none");
    pass(1s);
    EXPECT_EQ(view().quiesced(kRed4), "true");
    EXPECT_EQ(view().quiesced(kRed6), "true");
    pass(1s);
    EXPECT_EQ(view().quiesced(kRed4), "false");
    EXPECT_EQ(view().quiesced(kRed6), "true") << "never says nothing";
}

TEST_F(ScenarioQuiesced, AVrfThatGoesTakesItAlongAndComesWithItAgain) {
    play(
        "scenario: 1\nvrfs: [{name: red, id: 7}]\n"
        "timeline: [{at: 1s, delete: {vrfs: [red]}}, {at: 2s, add: {vrfs: [{name: red, id: "
        "7}]}}]\n");
    EXPECT_EQ(view().quiesced(kRed4), "true");
    pass(1s);
    EXPECT_EQ(view().quiesced(kRed4), "none");
    pass(1s);
    EXPECT_EQ(view().quiesced(kRed4), "true");
}

TEST_F(ScenarioQuiesced, NamesOfAllLengthsAreSpokenOf) {
    for (const std::size_t bytes : {100U, 101U}) {
        const std::string name(bytes, 'v');
        play("scenario: 1\ninvalid: allow\nvrfs: [{name: red, id: 6}, {name: " + name +
             ", id: 7}]\n");
        EXPECT_EQ(view().quiesced("routing/vrf/status/" + name), "true") << bytes;
        EXPECT_EQ(view().fibReady(name), "true") << bytes;
        EXPECT_EQ(view().quiesced(kRed4), "true") << bytes;
    }
}

TEST_F(ScenarioQuiesced, ATableMayNeverQuiesceWhileItsRoutesKeepChanging) {
    play(kBase +
         "ready: {quiesced: {red: {ipv4: never}}}\n"
         "repeat: {every: 2s}\n"
         "timeline:\n"
         "  - {at: 0s, add: {routes: [{vrf: red, prefix: 10.3.0.0/16, fec: 41}]}}\n"
         "  - {at: 1s, delete: {routes: [{vrf: red, prefix: 10.3.0.0/16}]}}\n");
    for (int i = 0; i < 400; ++i) {
        const std::string there = i % 2 == 0 ? "41 " : "none";
        ASSERT_EQ(view().route("red", "10.3.0.0/16"), there) << i;
        ASSERT_EQ(view().quiesced(kRed4), "none") << i;
        pass(1s);
    }
    EXPECT_EQ(view().fibReady("red"), "true");
    EXPECT_EQ(view().quiesced(kRed6), "true");
}

TEST_F(ScenarioQuiesced, ARestartIsSilent) {
    play(kBase);
    const auto before = view().position();
    play(kBase);
    EXPECT_EQ(view().position(), before);
}

TEST_F(ScenarioQuiesced, GeneratedTablesHaveQuiescedOnlyWithoutChurn) {
    std::string error;
    const auto still = *GeneratorOptions::parse("next-hops=8 groups=2 routes=4", error);
    start(std::make_unique<Generator>(still));
    settle();
    EXPECT_EQ(view().quiesced("routing/status"), "true");
    EXPECT_EQ(view().quiesced("routing6/status"), "true");
}

TEST_F(ScenarioQuiesced, NothingIsSaidOfTablesThatKeepChanging) {
    std::string error;
    const auto busy = *GeneratorOptions::parse("next-hops=8 groups=2 routes=4 churn=1/s", error);
    start(std::make_unique<Generator>(busy));
    settle();
    EXPECT_EQ(view().quiesced("routing/status"), "none");
}

TEST(ScenarioQuiescedProblems, AreNamedWithTheirPlaces) {
    EXPECT_THAT(parse("scenario: 1\nready: {quiesced: {red: {ipv4: true}}}\n").problems,
                ElementsAre("f.yaml:2:20: there is no VRF 'red'"));
    EXPECT_THAT(parse("scenario: 1\nready: {quiesced: {default: {ipv4: none}}}\n").problems,
                ElementsAre("f.yaml:2:36: expected true, false or never, not 'none'"));
    EXPECT_THAT(parse("scenario: 1\nready: {quiesced: true}\n").problems,
                ElementsAre("f.yaml:2:19: expected a map of VRF name to readiness, not 'true'"));
}

}  // namespace
}  // namespace Pel::Forwarder

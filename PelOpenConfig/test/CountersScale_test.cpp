#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "PelOpenConfig/test/PublishedCounters.h"
#include "test/support/Scale.h"

namespace Pel::Oc {
namespace {

class CountersScale : public testing::Test {
protected:
    const std::uint64_t scale = TestSupport::scale();
    PublishedCounters on{scale};

    Kiln::Duration longestSlice(const std::string& task) const {
        Kiln::Duration longest{};
        for (const auto& each : on.from.scheduler->tasks()) {
            if (each.name == task) { longest = std::max(longest, each.longestSlice); }
        }
        return longest;
    }
};

/// What a minute brings when each counter changes every second.
TEST_F(CountersScale, EachCounterChangingSixtyTimesHoldsNothingUp) {
    constexpr std::uint64_t kRounds = 60;
    ASSERT_EQ(on.nextHops->size(), scale);
    std::uint64_t shown = 0;
    std::uint64_t nextHopsAfterCounters = 0;
    std::uint64_t awaited = 0;  // a next hop that changed
    const auto onCounter =
        on.nextHopCounters->onNextHopCounter().subscribe([&](const OcApi::NextHopIndex&) {
            ++shown;
            if (awaited != 0) { ++nextHopsAfterCounters; }
        });
    const auto onNextHop = on.nextHops->onNextHop().subscribe([&](const OcApi::NextHopIndex& id) {
        if (id.value() == awaited) { awaited = 0; }
    });
    for (std::uint64_t round = 1; round <= kRounds; ++round) {
        on.countersAre(scale, round, [&] {
            // A turn at a time, with a next hop that changes while counters are under way.
            if (awaited == 0) {
                awaited = 1 + shown % scale;
                on.mapper->handleNextHop(Stash::OcNextHopIndex{awaited});
            }
            on.from.scheduler->stop();
            on.from.scheduler->run();
        });
        on.settle();
    }
    EXPECT_EQ(nextHopsAfterCounters, 0U) << "next hops go first";
    EXPECT_LE(shown, scale * kRounds);
    for (std::uint64_t id = 1; id <= scale; ++id) {
        const auto* const counter = on.nextHopCounters->nextHopCounter(OcApi::NextHopIndex{id});
        ASSERT_NE(counter, nullptr) << id;
        ASSERT_EQ(counter->packetsForwarded, kRounds) << id;
    }
    EXPECT_EQ(on.nextHopCounters->size(), scale);
    EXPECT_EQ(on.mapper->nhCounters().size(), 0U);
    const auto inMs = [this](const std::string& task) {
        return std::chrono::duration<double, std::milli>(longestSlice(task)).count();
    };
    std::printf("%lu counters: longest slices pump %.3f ms, counters %.3f ms, next hops %.3f ms\n",
                scale,
                inMs("StorePump"),
                inMs("CountersMapperSmTask"),
                inMs("NexthopMapperSmTask"));
}

/// Changes that come faster than the walk are worked out once.
TEST_F(CountersScale, ChangesThatComeTogetherAreOneUpdate) {
    std::uint64_t shown = 0;
    const auto onCounter = on.nextHopCounters->onNextHopCounter().subscribe(
        [&](const OcApi::NextHopIndex&) { ++shown; });
    const std::uint64_t some = std::min<std::uint64_t>(scale, 10'000);
    for (std::uint64_t round = 1; round <= 5; ++round) {
        on.countersAre(some, round, [] {});
    }
    on.settle();
    EXPECT_EQ(shown, some);
    EXPECT_EQ(on.nextHopCounters->nextHopCounter(OcApi::NextHopIndex{some})->packetsForwarded, 5U);
}

}  // namespace
}  // namespace Pel::Oc

#include "platform/Kiln/YieldPolicy.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

namespace {

using namespace std::chrono_literals;

/// The real reading is none of the test's business; how often it is asked is.
class CountingClock final : public Kiln::Clock {
public:
    Kiln::TimePoint now() const override {
        ++reads;
        return at;
    }
    std::int64_t wallNanoseconds() const override { return 0; }
    mutable int reads = 0;
    Kiln::TimePoint at{};
};

TEST(YieldPolicy, ByTimeReadsTheClockAtEverySixteenthQuestion) {
    CountingClock clock;
    Kiln::YieldByTime policy{2ms};
    policy.sliceBegun(clock);
    EXPECT_EQ(clock.reads, 1);
    for (int i = 0; i < 160; ++i) { EXPECT_FALSE(policy.sliceOver(clock)); }
    EXPECT_EQ(clock.reads, 11);
}

TEST(YieldPolicy, ByTimeEndsAfterItsTimeAndStaysOverUntilTheNextSlice) {
    CountingClock clock;
    Kiln::YieldByTime policy{2ms};
    policy.sliceBegun(clock);
    clock.at += 2ms;
    for (int i = 0; i < 15; ++i) { EXPECT_FALSE(policy.sliceOver(clock)); }
    EXPECT_TRUE(policy.sliceOver(clock));
    EXPECT_TRUE(policy.sliceOver(clock));
    policy.sliceBegun(clock);
    for (int i = 0; i < 32; ++i) { EXPECT_FALSE(policy.sliceOver(clock)); }
}

TEST(YieldPolicy, NeverAndAlwaysAreWhatTheySay) {
    const Kiln::VirtualClock clock;
    Kiln::NeverYield never;
    Kiln::AlwaysYield always;
    never.sliceBegun(clock);
    always.sliceBegun(clock);
    EXPECT_FALSE(never.sliceOver(clock));
    EXPECT_TRUE(always.sliceOver(clock));
}

}  // namespace

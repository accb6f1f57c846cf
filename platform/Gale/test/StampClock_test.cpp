#include "platform/Gale/StampClock.h"

#include <gtest/gtest.h>

#include <fstream>

#include "platform/Kiln/Clock.h"
#include "test/support/TempDir.h"

namespace Gale {
namespace {

TEST(StampClock, GoesOnAboveTheLastStampAfterARestart) {
    const TestSupport::TempDir dir;
    const auto file = dir.path() / "stamp";
    Kiln::VirtualClock clock;
    std::int64_t last = 0;
    {
        StampClock stamps{clock, file};
        for (int i = 0; i < 3; ++i) { stamps.used(stamps.next()); }
        last = stamps.last();
        EXPECT_EQ(last, clock.wallNanoseconds() + 2);
    }
    StampClock after{clock, file};
    EXPECT_EQ(after.next(), last + 1);
}

TEST(StampClock, WhatIsToldAgainIsAboveWhatWasAndBelowWhatComes) {
    Kiln::VirtualClock clock;
    StampClock stamps{clock, {}};
    std::int64_t before = 0;
    {
        const StampClock::Turn turn{stamps};
        stamps.used(stamps.next());
    }
    before = stamps.last();
    for (int i = 0; i < 3; ++i) {
        const std::int64_t again = stamps.again();
        EXPECT_GT(again, before);
        before = again;
    }
    for (const bool late : {false, true}) {
        if (late) { clock.advance(std::chrono::seconds(1)); }
        const StampClock::Turn turn{stamps};
        const std::int64_t change = stamps.next();  // encoded, but not in the journal yet
        for (int i = 0; i < 3; ++i) {
            const std::int64_t again = stamps.again();
            EXPECT_GT(again, before);
            EXPECT_LT(again, change);
            before = again;
        }
        stamps.used(change);
        before = change;
    }
    EXPECT_GT(stamps.again(), before);
    EXPECT_EQ(stamps.next(), stamps.last() + 1);
}

TEST(StampClock, WhatWasToldAgainInATurnWithoutChangesCountsAfterIt) {
    Kiln::VirtualClock clock;
    StampClock stamps{clock, {}};
    std::int64_t again = 0;
    {
        const StampClock::Turn turn{stamps};
        again = stamps.again();
    }
    EXPECT_EQ(stamps.last(), again);
    EXPECT_GT(stamps.again(), again);
}

TEST(StampClock, GoesOnAboveTheMarkAfterACrash) {
    const TestSupport::TempDir dir;
    const auto file = dir.path() / "stamp";
    Kiln::VirtualClock clock;
    StampClock crashed{clock, file};
    clock.advance(std::chrono::seconds(100));
    crashed.used(crashed.next());
    Kiln::VirtualClock setBack;
    const StampClock after{setBack, file};  // the other one has not said good-bye
    EXPECT_GT(after.next(), crashed.last());
    EXPECT_LT(after.next(), crashed.last() + 31'000'000'000);
}

TEST(StampClock, AFileThatIsNoneIsIgnored) {
    const TestSupport::TempDir dir;
    const auto file = dir.path() / "stamp";
    Kiln::VirtualClock clock;
    for (const char* const content : {"", "rubbish", "-5", "9223372036854775807", "1e300"}) {
        std::ofstream{file} << content;
        const StampClock stamps{clock, file};
        EXPECT_EQ(stamps.next(), clock.wallNanoseconds()) << content;
        std::filesystem::remove(file);
    }
    const StampClock nowhere{clock, dir.path() / "no" / "such"};
    EXPECT_EQ(nowhere.next(), clock.wallNanoseconds());
}

}  // namespace
}  // namespace Gale

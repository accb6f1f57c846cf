#include "apps/cli/RateMeter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <proto/gnmi.pb.h>

#include "apps/cli/GnmiText.h"

namespace Pel::Cli {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr const char* kPackets =
    "/afts/counters/next-hops/next-hop[index=7]/state/packets-forwarded";
constexpr const char* kOctets = "/afts/counters/next-hops/next-hop[index=7]/state/octets-forwarded";

gnmi::Path path(std::string_view text) {
    gnmi::Path result;
    std::string error;
    EXPECT_TRUE(pathFromText(text, result, error)) << error;
    return result;
}

class RateMeterTest : public testing::Test {
protected:
    static gnmi::Notification sample(std::string_view at, std::uint64_t value, double seconds) {
        gnmi::Notification notification;
        notification.set_timestamp(static_cast<std::int64_t>(seconds * kSecond));
        gnmi::Update& update = *notification.add_update();
        *update.mutable_path() = path(at);
        update.mutable_val()->set_uint_val(value);
        return notification;
    }
    void takes(std::string_view at, std::uint64_t value, double seconds) {
        meter.take(sample(at, value, seconds));
    }
    void loses(std::string_view at) {
        gnmi::Notification notification;
        *notification.add_delete_() = path(at);
        meter.take(notification);
    }
    /// The one row of a report.
    RateMeter::Row row() {
        const auto report = meter.report();
        EXPECT_EQ(report.rows.size(), 1U);
        return report.rows.empty() ? RateMeter::Row{} : report.rows[0];
    }
    RateMeter meter;
};

TEST_F(RateMeterTest, ARateIsTheChangeOverTheTimeBetweenTheStamps) {
    takes(kPackets, 1000, 100);
    EXPECT_EQ(row().perSecond, std::nullopt);  // nothing to compare it with
    takes(kPackets, 1500, 105);
    const auto shown = row();
    EXPECT_EQ(shown.path, kPackets);
    EXPECT_EQ(shown.value, 1500U);
    EXPECT_EQ(shown.perSecond, 100.0);
    EXPECT_FALSE(shown.restarted);
}

TEST_F(RateMeterTest, SamplesThatCameLateAndTogetherAreNoHigherRate) {
    takes(kPackets, 0, 100);
    meter.report();
    takes(kPackets, 500, 105);
    takes(kPackets, 1000, 110);
    EXPECT_EQ(row().perSecond, 100.0);
}

TEST_F(RateMeterTest, OnlyCountersWithANewSampleAreReported) {
    takes(kPackets, 1, 1);
    takes(kOctets, 2, 1);
    EXPECT_EQ(meter.report().rows.size(), 2U);
    takes(kOctets, 3, 2);
    EXPECT_EQ(row().path, kOctets);
    EXPECT_TRUE(meter.report().rows.empty());
}

TEST_F(RateMeterTest, ACounterThatFallsStartsAgainWithoutANegativeRate) {
    takes(kPackets, 1000, 100);
    meter.report();
    takes(kPackets, 40, 110);
    auto shown = row();
    EXPECT_TRUE(shown.restarted);
    EXPECT_EQ(shown.perSecond, std::nullopt);
    EXPECT_EQ(shown.value, 40U);
    takes(kPackets, 60, 120);
    shown = row();
    EXPECT_FALSE(shown.restarted);
    EXPECT_EQ(shown.perSecond, 2.0);
}

TEST_F(RateMeterTest, AfterAFallWithinOneIntervalItIsMeasuredFromTheFall) {
    takes(kPackets, 1000, 100);
    meter.report();
    takes(kPackets, 40, 110);
    takes(kPackets, 60, 120);
    const auto shown = row();
    EXPECT_TRUE(shown.restarted);
    EXPECT_EQ(shown.perSecond, 2.0);
}

TEST_F(RateMeterTest, ACounterThatWentAndComesAnewIsAFirstOne) {
    takes(kPackets, 1000, 100);
    meter.report();
    loses("/afts/counters/next-hops/next-hop[index=7]");
    takes(kPackets, 2000, 110);
    const auto shown = row();
    EXPECT_EQ(shown.perSecond, std::nullopt);
    EXPECT_FALSE(shown.restarted);
}

TEST_F(RateMeterTest, ADeleteTakesWhatIsBelowItAndNothingBesideIt) {
    takes("/counters/a[k=1]/x", 1, 1);
    takes("/counters/a[k=10]/x", 1, 1);
    takes("/counters/ab/x", 1, 1);
    meter.report();
    loses("/counters/a[k=1]");
    loses("/counters/a");
    takes("/counters/a[k=10]/x", 2, 2);
    EXPECT_EQ(row().perSecond, std::nullopt);
    takes("/counters/ab/x", 2, 2);
    EXPECT_EQ(row().perSecond, 1.0);
    loses("/");
    takes("/counters/ab/x", 3, 3);
    EXPECT_EQ(row().perSecond, std::nullopt);
}

TEST_F(RateMeterTest, WhatAnAtomicNotificationLeavesOutIsGone) {
    const char* const packets = "/next-hop[index=7]/state/counters/packets-forwarded";
    const char* const octets = "/next-hop[index=7]/state/counters/octets-forwarded";
    takes(packets, 1, 1);
    takes(octets, 1, 1);
    meter.report();
    gnmi::Notification whole = sample("/state/counters/packets-forwarded", 3, 2);
    *whole.mutable_prefix() = path("/next-hop[index=7]");
    whole.set_atomic(true);
    meter.take(whole);
    EXPECT_EQ(row().perSecond, 2.0);
    takes(octets, 5, 3);
    EXPECT_EQ(row().perSecond, std::nullopt);
}

TEST_F(RateMeterTest, WithoutTimeBetweenTwoSamplesThereIsNoRateUntilThereIs) {
    takes(kPackets, 10, 100);
    takes(kPackets, 20, 100);
    EXPECT_EQ(row().perSecond, std::nullopt);
    takes(kPackets, 30, 101);
    EXPECT_EQ(row().perSecond, 20.0);  // from the first of the samples of that time
}

TEST_F(RateMeterTest, AStampThatGoesBackIsAStartToo) {
    takes(kPackets, 10, 100);
    meter.report();
    takes(kPackets, 20, 50);
    EXPECT_TRUE(row().restarted);
    takes(kPackets, 30, 51);
    EXPECT_EQ(row().perSecond, 10.0);
}

TEST_F(RateMeterTest, TheLargestValuesAndStampsAreNoTrouble) {
    gnmi::Notification first = sample(kPackets, 0, 0);
    first.set_timestamp(std::numeric_limits<std::int64_t>::min());
    meter.take(first);
    meter.report();
    gnmi::Notification second = sample(kPackets, std::numeric_limits<std::uint64_t>::max(), 0);
    second.set_timestamp(std::numeric_limits<std::int64_t>::max());
    meter.take(second);
    EXPECT_NEAR(row().perSecond.value_or(0), 1e9, 1);
}

struct LeafCase {
    std::string_view name;
    std::string_view path;
    bool counter;
};
constexpr LeafCase kLeaves[] = {
    {"NextHop", kPackets, true},
    {"InTheEntryItself", "/afts/next-hops/next-hop[index=7]/state/counters/octets-forwarded", true},
    {"Backup", "/c/counters/x[prefix=10.0.0.0/8]/state/packets-forwarded-backup", true},
    {"Native", "/AftExport/nextHopCounters[index=7]/packets", true},
    {"ItsKey", "/afts/counters/next-hops/next-hop[index=7]/state/index", false},
    {"NoCounter", "/afts/next-hops/next-hop[index=7]/state/programmed-index", false},
};
class CounterLeaf : public RateMeterTest, public testing::WithParamInterface<LeafCase> {};
TEST_P(CounterLeaf, IsKnownByWhereItStands) {
    takes(GetParam().path, 5, 1);
    EXPECT_EQ(meter.report().rows.size(), GetParam().counter ? 1U : 0U);
}
INSTANTIATE_TEST_SUITE_P(, CounterLeaf, testing::ValuesIn(kLeaves), [](const auto& row) {
    return std::string{row.param.name};
});

TEST_F(RateMeterTest, WhatIsNoUnsignedNumberIsNoCounter) {
    gnmi::Notification text = sample(kPackets, 0, 1);
    text.mutable_update(0)->mutable_val()->set_string_val("many");
    meter.take(text);
    const auto report = meter.report();
    EXPECT_TRUE(report.rows.empty());
    EXPECT_EQ(report.updates, 1U);
}

TEST_F(RateMeterTest, WhatCameSinceTheLastReportIsCounted) {
    takes(kPackets, 1, 1);
    takes("/other", 1, 1);
    loses("/other");
    auto report = meter.report();
    EXPECT_EQ(report.updates, 2U);
    EXPECT_EQ(report.deletes, 1U);
    EXPECT_EQ(report.messages, 3U);
    report = meter.report();
    EXPECT_EQ(report.updates + report.deletes + report.messages, 0U);
}

}  // namespace
}  // namespace Pel::Cli

#include "forwarder/Flatten/VniFilters.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <set>

namespace Pel::Forwarder {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(VniRanges, RangesThatTouchAreOne) {
    VniRanges ranges;
    EXPECT_TRUE(ranges.add({10, 12}));
    EXPECT_TRUE(ranges.add({14, 14}));
    EXPECT_THAT(ranges.ranges(), ElementsAre(VniRange{10, 12}, VniRange{14, 14}));
    EXPECT_TRUE(ranges.add({13, 13}));
    EXPECT_THAT(ranges.ranges(), ElementsAre(VniRange{10, 14}));
    EXPECT_FALSE(ranges.add({11, 14}));
}

TEST(VniRanges, MiddleOfARangeCanGo) {
    VniRanges ranges;
    ranges.add({10, 20});
    EXPECT_TRUE(ranges.remove({14, 15}));
    EXPECT_THAT(ranges.ranges(), ElementsAre(VniRange{10, 13}, VniRange{16, 20}));
    EXPECT_FALSE(ranges.remove({14, 15}));
    EXPECT_TRUE(ranges.contains(13));
    EXPECT_FALSE(ranges.contains(14));
}

TEST(VniRanges, AgreeWithASetOfNumbers) {
    std::mt19937 random{4711};
    VniRanges ranges;
    std::set<std::uint32_t> oracle;
    for (int round = 0; round < 20000; ++round) {
        const auto first = static_cast<std::uint32_t>(1 + random() % 60);
        const VniRange range{first, first + static_cast<std::uint32_t>(random() % 6)};
        const std::set<std::uint32_t> before = oracle;
        const bool adds = random() % 2 == 0;
        for (std::uint32_t vni = range.first; vni <= range.last; ++vni) {
            if (adds) {
                oracle.insert(vni);
            } else {
                oracle.erase(vni);
            }
        }
        const bool changed = adds ? ranges.add(range) : ranges.remove(range);
        ASSERT_EQ(changed, before != oracle);
        std::set<std::uint32_t> now;
        std::uint32_t end = 0;
        for (const VniRange& r : ranges.ranges()) {
            ASSERT_TRUE(end == 0 || r.first > end + 1);
            end = r.last;
            for (std::uint32_t vni = r.first; vni <= r.last; ++vni) { now.insert(vni); }
        }
        ASSERT_EQ(now, oracle);
        ASSERT_EQ(ranges.contains(first), oracle.contains(first));
    }
}

TEST(VniFilters, DumpReplacesWhatItDoesNotMention) {
    VniFilters filters;
    filters.add({7, {{1, 10}}});
    filters.add({8, {{1, 10}}});
    filters.add({9, {{1, 10}}});
    filters.beginDump();
    filters.add({7, {{1, 4}}});
    filters.add({8, {{1, 5}}});
    filters.add({8, {{6, 10}}});
    EXPECT_EQ(filters.find(7)->ranges(), (std::vector<VniRange>{{1, 10}})) << "until the sweep";
    EXPECT_THAT(filters.sweep(), ElementsAre(7U, 9U));
    EXPECT_EQ(filters.find(7)->ranges(), (std::vector<VniRange>{{1, 4}}));
    EXPECT_EQ(filters.find(8)->ranges(), (std::vector<VniRange>{{1, 10}}));
    EXPECT_EQ(filters.find(9), nullptr);
}

TEST(VniFilters, NotificationsDuringADumpCount) {
    VniFilters filters;
    filters.beginDump();
    filters.add({7, {{1, 10}}});
    EXPECT_TRUE(filters.remove({7, {{3, 3}}}));
    EXPECT_THAT(filters.sweep(), IsEmpty());
    EXPECT_EQ(filters.find(7)->ranges(), (std::vector<VniRange>{{1, 2}, {4, 10}}));
    EXPECT_TRUE(filters.remove({7, {{1, 10}}}));
    EXPECT_EQ(filters.find(7), nullptr);
    EXPECT_FALSE(filters.remove({7, {{1, 10}}}));
}

}  // namespace
}  // namespace Pel::Forwarder

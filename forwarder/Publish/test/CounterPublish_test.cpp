#include "forwarder/Publish/CounterPublish.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "forwarder/Publish/test/PublishBed.h"
#include "forwarder/Scenario/test/StoreView.h"

namespace Pel::Forwarder {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

/// Group 200 over 10.0.0.1 to 10.0.0.3, whose next hops have the numbers 1 to 3, and an agent's view of the store.
class CounterPublishTest : public PublishBed {
protected:
    CounterPublishTest() { tell(); }
    /// What the source says after a start.
    void tell() {
        bed->link(1, "e1");
        for (std::uint32_t n = 1; n <= 3; ++n) {
            bed->nexthop(100 + n, "10.0.0." + std::to_string(n), 1);
        }
        bed->group(200, {{101, 1}, {102, 1}, {103, 1}});
        bed->add(FlattenBed::nhidRoute("192.0.2.0/24", 200));
        settle();
        counters.emplace(bed->fib, bed->flatten);
        counterPublish.emplace(*counters, publish->store(), *writer, clock);
    }
    void restart(std::size_t mapBytes = std::size_t{64} << 20) {
        counterPublish.reset();
        counters.reset();
        view_.reset();  // a process has one map of a store
        start(mapBytes);
        tell();
    }
    void poll(const std::vector<std::uint64_t>& packets) {
        Nexthop group;
        group.id = 200;
        group.isGroup = group.hasStatistics = true;
        for (std::uint32_t i = 0; i < packets.size(); ++i) {
            group.group.push_back({101 + i, 1, packets[i]});
        }
        counters->beginPoll();
        counters->apply(group);
        std::size_t all = 1000;
        counters->forget(all);
        write();
    }
    void write() {
        while (counterPublish->run([this] { return yields; })) {}
    }
    void pass(Kiln::Duration time) {
        clock.advance(time);
        write();
    }
    StoreView& view() {
        if (view_ == nullptr) { view_ = std::make_unique<StoreView>(options); }
        view_->look();
        return *view_;
    }

    std::optional<MemberCounters> counters;
    std::optional<CounterPublish> counterPublish;

private:
    std::unique_ptr<StoreView> view_;
};

TEST_F(CounterPublishTest, TrafficStandsUnderTheCounterIndexOfTheNextHop) {
    poll({5, 7, 0});
    EXPECT_EQ(view().counter(200, 0), 1U);
    EXPECT_EQ(view().traffic(1), "5/0");
    EXPECT_EQ(view().traffic(2), "7/0");
    EXPECT_EQ(view().traffic(3), "none");
}

TEST_F(CounterPublishTest, ACounterThatWasReplacedByAnEqualOneIsTold) {
    view();
    publish->store().counters().set(StoredCounters::Index{1}, {{5, 6}, {}});
    ASSERT_EQ(writer->commit(), "");
    EXPECT_EQ(view().told(1), 1U);
    publish->store().counters().set(StoredCounters::Index{1}, {{5, 6}, {}});
    ASSERT_EQ(writer->commit(), "");
    EXPECT_EQ(view().told(1), 2U);
}

TEST_F(CounterPublishTest, ACounterGoesWithItsNextHop) {
    poll({5, 7, 9});
    poll({1, 8, 9});  // so that one has something that was made up for
    bed->group(200, {{102, 1}, {103, 1}});
    settle();
    EXPECT_EQ(view().traffic(1), "none");
    EXPECT_FALSE(publish->store().counters().find(StoredCounters::Index{1}));
    EXPECT_EQ(view().traffic(2), "8/0");
    bed->del(FlattenBed::nhidRoute("192.0.2.0/24", 200));
    settle();
    EXPECT_EQ(view().counters(), 0U);
}

TEST_F(CounterPublishTest, ACounterIsNotWrittenBeforeItsNextHop) {
    bed->nexthop(104, "10.0.0.4", 1);
    bed->group(200, {{101, 1}, {102, 1}, {103, 1}, {104, 1}});
    FlatDiff diff;
    while (bed->flatten.collect(diff, 1000)) { diff.clear(); }  // known, and not published
    poll({1, 0, 0, 5});
    EXPECT_EQ(view().traffic(1), "1/0");
    EXPECT_EQ(view().traffic(4), "none");
    for (const FlatNextHop& nextHop : diff.nextHops) { publish->store().nextHopIs(nextHop); }
    ASSERT_EQ(writer->commit(), "");
    poll({1, 0, 0, 5});
    EXPECT_EQ(view().traffic(4), "5/0");
}

TEST_F(CounterPublishTest, ACounterNeverRunsBackwardsOverARestart) {
    poll({100, 7, 0});
    poll({20, 7, 0});
    EXPECT_EQ(view().traffic(1), "120/0");
    restart();
    EXPECT_EQ(view().traffic(1), "120/0") << "until the first poll";
    poll({25, 7, 0});
    EXPECT_EQ(view().traffic(1), "125/0");
    EXPECT_EQ(view().traffic(2), "7/0");
    restart();
    poll({2, 0, 0});  // replaced while the forwarder was away
    EXPECT_EQ(view().traffic(1), "127/0");
}

TEST_F(CounterPublishTest, EveryCounterIsToldAgainWithinAMinute) {
    poll({5, 7, 0});
    view();
    for (int second = 0; second < 60; ++second) { pass(1s); }
    EXPECT_GE(view().told(1), 1U);
    EXPECT_GE(view().told(2), 1U);
    EXPECT_EQ(view().told(3), 0U) << "no such counter";
    EXPECT_EQ(view().traffic(1), "5/0");
}

/// 20,000 counters without next hops, some far apart.
class CounterRefreshTest : public CounterPublishTest {
protected:
    CounterRefreshTest() {
        for (std::uint64_t i = 0; i < kCounters; ++i) {
            put(i < kCounters - 100 ? i + 1 : (i * 0x9E37'79B9'7F4A'7C15U) | 1ULL << 40U);
            if (i % 500 == 499) { EXPECT_EQ(writer->commit(), ""); }
        }
        put(~std::uint64_t{0});
        EXPECT_EQ(writer->commit(), "");
        view();
    }
    void put(std::uint64_t index) {
        indexes.insert(index);
        publish->store().counters().set(StoredCounters::Index{index}, {{index, 1}, {}});
    }
    std::size_t toldAtLeast(std::size_t times) {
        std::size_t count = 0;
        for (const std::uint64_t index : indexes) { count += view().told(index) >= times ? 1 : 0; }
        return count;
    }
    static constexpr std::uint64_t kCounters = 2000;
    std::set<std::uint64_t> indexes;
};

TEST_F(CounterRefreshTest, ThoseThatStandStillAreAllToldAgainAndEvenlySpread) {
    std::size_t most = 0;
    std::size_t before = 0;
    for (std::uint64_t second = 0; second < CounterRefresh::kParts; ++second) {
        pass(1s);
        const std::size_t now = toldAtLeast(1);
        most = std::max(most, now - before);
        before = now;
    }
    EXPECT_EQ(before, indexes.size());
    EXPECT_EQ(toldAtLeast(2), 0U);
    EXPECT_LE(most, 3 * StoredCounters::kBlock) << "of 2,000 in 50 s";
    for (std::uint64_t second = 0; second < CounterRefresh::kParts; ++second) { pass(1s); }
    EXPECT_EQ(toldAtLeast(2), indexes.size());
    EXPECT_EQ(toldAtLeast(3), 0U);
}

TEST_F(CounterRefreshTest, APauseIsMadeUpForOnce) {
    pass(10min);
    EXPECT_EQ(toldAtLeast(1), indexes.size());
    EXPECT_EQ(toldAtLeast(2), 0U);
}

TEST_F(CounterRefreshTest, IsDoneAFewAtATime) {
    clock.advance(10min);
    yields = true;
    std::size_t slices = 1;
    while (counterPublish->run([] { return true; })) { ++slices; }
    EXPECT_GE(slices, indexes.size() / 256);
    EXPECT_EQ(toldAtLeast(1), indexes.size());
}

TEST_F(CounterRefreshTest, CountersThatComeMeanwhileAreToldInTheirOwnSecondToo) {
    for (int second = 0; second < 25; ++second) { pass(1s); }
    for (std::uint64_t i = 0; i < 500; ++i) { put(1'000'000 + 64 * i); }
    ASSERT_EQ(writer->commit(), "");
    view();  // of which the writing is one
    for (std::uint64_t second = 0; second < CounterRefresh::kParts; ++second) { pass(1s); }
    EXPECT_EQ(toldAtLeast(1), indexes.size());
    for (std::uint64_t i = 0; i < 500; ++i) { EXPECT_EQ(view().told(1'000'000 + 64 * i), 2U); }
}

/// A store that has no room for what comes.
class FullStoreCounters : public CounterPublishTest {};

TEST_F(FullStoreCounters, WaitAndComeWhenThereIsRoomWhileThoseThatAreThereCountOn) {
    restart(std::size_t{1} << 20);
    poll({5, 0, 0});
    // Up to the limit, and then the page in which the three counters stand.
    std::vector<std::uint64_t> filled;
    for (const auto& [first, step] : {std::pair{10'000U, 100U}, {10'000U, 1U}, {4U, 1U}}) {
        const std::size_t before = first == 4U ? filled.size() : 0;
        while (writer->commit().empty()) {
            for (std::size_t i = 0; i < step; ++i) {
                filled.push_back(first + filled.size() - before);
                publish->store().counters().set(StoredCounters::Index{filled.back()}, {{1, 1}, {}});
            }
        }
    }
    poll({6, 0, 0});
    EXPECT_EQ(counterPublish->failure(), "") << "a replacement needs no room";
    poll({6, 3, 4});
    EXPECT_THAT(counterPublish->failure(), HasSubstr("full"));
    EXPECT_EQ(view().traffic(1), "6/0");
    EXPECT_EQ(view().traffic(2), "none");
    restart(std::size_t{2} << 20);
    poll({7, 3, 4});
    EXPECT_EQ(counterPublish->failure(), "");
    EXPECT_EQ(view().traffic(1), "7/0");
    EXPECT_EQ(view().traffic(2), "3/0");
    EXPECT_EQ(view().traffic(3), "4/0");
}

}  // namespace
}  // namespace Pel::Forwarder

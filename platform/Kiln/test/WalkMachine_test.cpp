#include "platform/Kiln/WalkMachine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/Kiln/FreeInSlices.h"
#include "platform/Vel/Collection.h"
#include "test/support/AllocationCount.h"
#include "test/support/TraceCapture.h"

namespace {

class Walker final : public Kiln::WalkMachine<int> {
public:
    explicit Walker(const Vel::Ref<Kiln::TaskScheduler>& scheduler)
        : WalkMachine{scheduler, "WalkerTask", 3} {}

    void add(int key) {
        backlogIs(key);
        scheduleWalk();
    }
    void addAll(const Vel::Collection<int, int>& all) {
        backlogAddAll([&all](const std::optional<int>& after) { return all.nextKey(after); });
        scheduleWalk();
    }
    /// A feed whose steps put these keys in.
    void feed(std::vector<std::vector<int>> steps) {
        backlogFeedIs([this, left = std::move(steps), next = std::size_t{0}]() mutable {
            ++fed;
            for (const int key : left.at(next)) { backlogIs(key); }
            return ++next < left.size();
        });
        scheduleWalk();
    }
    void del(int key) { backlogDel(key); }
    void delAll() { backlogDelAll(); }

    std::vector<int> seen;
    std::vector<int> failed;
    int fed = 0;
    int ends = 0;
    int endsWhileEmpty = 0;
    std::function<void(int)> process;
    std::function<void()> atEnd;

protected:
    void backlogProcessElem(const int& key) override {
        seen.push_back(key);
        if (process) { process(key); }
    }
    void elementFailed(const int& key) override { failed.push_back(key); }
    void walkEnded() override {
        ++ends;
        if (backlogEmpty()) { ++endsWhileEmpty; }
        if (atEnd) { atEnd(); }
    }
};

enum class Policy { never, always, byTime };

std::unique_ptr<Kiln::YieldPolicy> make(Policy policy) {
    switch (policy) {
        case Policy::never:
            return std::make_unique<Kiln::NeverYield>();
        case Policy::always:
            return std::make_unique<Kiln::AlwaysYield>();
        case Policy::byTime:
            break;
    }
    return std::make_unique<Kiln::YieldByTime>();
}

/// Every walk holds under each policy: what differs is only where it rests.
class WalkTest : public testing::TestWithParam<Policy> {
protected:
    void run() { scheduler_->runUntilIdle(); }

    Kiln::VirtualClock clock_;
    Vel::Ref<Kiln::TaskScheduler> scheduler_ =
        Vel::make<Kiln::TaskScheduler>(clock_, make(GetParam()));
    Vel::Ref<Walker> walker_ = Vel::make<Walker>(scheduler_);
};

INSTANTIATE_TEST_SUITE_P(,
                         WalkTest,
                         testing::Values(Policy::never, Policy::always, Policy::byTime),
                         [](const auto& row) {
                             return row.param == Policy::never    ? "Never"
                                    : row.param == Policy::always ? "Always"
                                                                  : "ByTime";
                         });

TEST_P(WalkTest, ProcessesEachKeyOnceInOrderHoweverOftenItWasPutIn) {
    for (const int key : {5, 1, 3, 1, 5}) { walker_->add(key); }
    EXPECT_TRUE(walker_->seen.empty());  // a reaction only records
    run();
    EXPECT_EQ(walker_->seen, (std::vector<int>{1, 3, 5}));
    EXPECT_TRUE(walker_->backlogEmpty());
}

TEST_P(WalkTest, GoesOnBehindTheBookmarkAndRound) {
    walker_->add(50);
    run();
    EXPECT_EQ(walker_->backlogBookmark(), 50);
    for (const int key : {40, 60, 50, 10}) { walker_->add(key); }
    run();
    EXPECT_EQ(walker_->seen, (std::vector<int>{50, 60, 10, 40, 50}));
}

TEST_P(WalkTest, AnElementHasLeftTheBacklogWhenItIsProcessedAndMayComeBack) {
    int again = 2;
    walker_->process = [&](int key) {
        EXPECT_FALSE(walker_->backlogHas(key));
        if (key == 2 && again-- > 0) { walker_->add(key); }
    };
    for (const int key : {1, 2, 3}) { walker_->add(key); }
    run();
    EXPECT_EQ(walker_->seen, (std::vector<int>{1, 2, 3, 2, 2}));
}

TEST_P(WalkTest, AnElementMayTakeOthersOut) {
    walker_->process = [&](int key) {
        if (key == 1) { walker_->del(2); }
        if (key == 3) { walker_->delAll(); }
    };
    for (const int key : {1, 2, 3, 4}) { walker_->add(key); }
    run();
    EXPECT_EQ(walker_->seen, (std::vector<int>{1, 3}));
}

TEST_P(WalkTest, AWholeCollectionIsDrawnInOrderTogetherWithSingleKeys) {
    Vel::Collection<int, int> all;
    for (const int key : {10, 20, 30}) { all.set(key, 0); }
    walker_->add(25);
    walker_->add(20);
    walker_->addAll(all);
    EXPECT_FALSE(walker_->backlogEmpty());
    run();
    EXPECT_EQ(walker_->seen, (std::vector<int>{10, 20, 25, 30}));
    EXPECT_TRUE(walker_->backlogEmpty());
}

TEST_P(WalkTest, ACollectionMayChangeUnderTheWalk) {
    Vel::Collection<int, int> all;
    for (const int key : {10, 20, 30}) { all.set(key, 0); }
    const auto on = all.onKey().subscribe([this](const int& key) { walker_->add(key); });
    walker_->process = [&](int key) {
        if (key == 10 && !all.has(25)) {
            all.erase(20);
            all.set(25, 0);
            all.set(5, 0);
        }
    };
    walker_->addAll(all);
    run();
    EXPECT_EQ(walker_->seen, (std::vector<int>{10, 20, 25, 30, 5}));
}

TEST_P(WalkTest, AFeedIsAskedBeforeEachElementUntilItHasNoMore) {
    walker_->add(15);
    walker_->feed({{10, 20}, {}, {30}, {}, {}});
    EXPECT_FALSE(walker_->backlogEmpty()) << "what the feed has counts";
    EXPECT_EQ(walker_->fed, 0) << "and costs nothing until the walk comes to it";
    std::vector<int> fedAt;
    walker_->process = [&](int /*key*/) { fedAt.push_back(walker_->fed); };
    run();
    EXPECT_EQ(walker_->seen, (std::vector<int>{10, 15, 20, 30}));
    EXPECT_EQ(fedAt, (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(walker_->fed, 5);
    EXPECT_EQ(walker_->endsWhileEmpty, 1);
}

TEST_P(WalkTest, AFeedThatHasNothingForLongYieldsToo) {
    walker_->feed(std::vector<std::vector<int>>(100));
    run();
    EXPECT_EQ(walker_->fed, 100);
    EXPECT_EQ(walker_->ends, GetParam() == Policy::always ? 100 : 1);
    EXPECT_TRUE(walker_->backlogEmpty());
}

TEST_P(WalkTest, AFeedThatIsTakenAwayIsNotAskedAgain) {
    walker_->feed({{1}, {2}, {3}});
    walker_->process = [&](int /*key*/) { walker_->delAll(); };
    run();
    EXPECT_EQ(walker_->fed, 1);
    EXPECT_EQ(walker_->seen, (std::vector<int>{1}));
}

TEST(BacklogTest, AKeyMayBeDrawnWhileItWaitsOrARoundHasNotPassedIt) {
    Vel::Collection<int, int> all;
    for (const int key : {2, 4, 6}) { all.set(key, 0); }
    Kiln::Backlog<int> sut;
    EXPECT_FALSE(sut.mayDraw(3));
    sut.insert(3);
    EXPECT_TRUE(sut.mayDraw(3));
    EXPECT_EQ(sut.draw(), 3);
    EXPECT_FALSE(sut.mayDraw(3));
    sut.addAll([&all](const std::optional<int>& after) { return all.nextKey(after); });
    EXPECT_TRUE(sut.mayDraw(4)) << "ahead of the bookmark";
    EXPECT_TRUE(sut.mayDraw(2)) << "behind it, and the round comes back";
    EXPECT_EQ(sut.draw(), 4);
    EXPECT_FALSE(sut.mayDraw(4));
    EXPECT_EQ(sut.draw(), 6);
    EXPECT_TRUE(sut.mayDraw(2));
    EXPECT_EQ(sut.draw(), 2);
    EXPECT_FALSE(sut.mayDraw(2));
    EXPECT_FALSE(sut.mayDraw(6)) << "its round ended where it began";
    EXPECT_EQ(sut.draw(), std::nullopt);
    EXPECT_FALSE(sut.mayDraw(3));
}

TEST_P(WalkTest, WhatAnElementThrowsIsItsOwnAndTheWalkFinishes) {
    const TestSupport::TraceCapture trace;
    walker_->process = [](int key) {
        if (key == 2) { throw std::range_error{"out of range"}; }
        if (key == 3) { throw key; }
    };
    for (const int key : {1, 2, 3, 4}) { walker_->add(key); }
    run();
    EXPECT_EQ(walker_->seen, (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(walker_->failed, (std::vector<int>{2, 3}));
    EXPECT_EQ(walker_->failedElements(), 2U);
    EXPECT_EQ(walker_->endsWhileEmpty, 1);
    EXPECT_EQ(walker_->walkStatistics().exceptions, 0U);
    EXPECT_EQ(trace.texts("Kiln"),
              (std::vector<std::string>{"WalkerTask: element failed: out of range",
                                        "WalkerTask: element failed: what is no exception"}));
}

TEST_P(WalkTest, WhatTheLastStepsThrowDoesNotLoseWhatIsPending) {
    walker_->atEnd = [] { throw std::runtime_error{"at the end"}; };
    for (const int key : {1, 2, 3}) { walker_->add(key); }
    run();
    EXPECT_EQ(walker_->seen, (std::vector<int>{1, 2, 3}));
    EXPECT_TRUE(walker_->backlogEmpty());
}

TEST_P(WalkTest, TheLastStepsMayPutMoreIn) {
    walker_->atEnd = [this, more = true]() mutable {
        if (more && walker_->backlogEmpty()) {
            more = false;
            walker_->add(9);
        }
    };
    walker_->add(1);
    run();
    EXPECT_EQ(walker_->seen, (std::vector<int>{1, 9}));
}

TEST_P(WalkTest, AMachineMayBeReleasedInsideItsOwnElementAndDoesNothingAfterwards) {
    std::vector<int> seen;
    int ends = 0;
    walker_->process = [&](int key) {
        seen.push_back(key);
        if (key == 2) { walker_ = nullptr; }
    };
    walker_->atEnd = [&] { ++ends; };
    for (const int key : {1, 2, 3}) { walker_->add(key); }
    run();
    EXPECT_EQ(seen, (std::vector<int>{1, 2}));
    EXPECT_EQ(ends, GetParam() == Policy::always ? 1 : 0);  // the slice before
    EXPECT_TRUE(scheduler_->tasks().empty());
}

TEST_P(WalkTest, AMachineOnAStackWalksToo) {
    Walker onStack{scheduler_};
    onStack.add(1);
    run();
    EXPECT_EQ(onStack.seen, std::vector<int>{1});
}

TEST_P(WalkTest, AMachineReleasedWhileItsWalkWaitsIsNotWalked) {
    walker_->add(1);
    walker_ = nullptr;
    EXPECT_FALSE(scheduler_->runUntilIdle());
}

TEST(WalkSlices, AlwaysTakesOneElementASliceAndNeverTakesAll) {
    for (const Policy policy : {Policy::always, Policy::never}) {
        const Kiln::VirtualClock clock;
        const auto scheduler = Vel::make<Kiln::TaskScheduler>(clock, make(policy));
        const auto walker = Vel::make<Walker>(scheduler);
        for (int key = 0; key < 10; ++key) { walker->add(key); }
        scheduler->runUntilIdle();
        EXPECT_EQ(walker->walkStatistics().runs, policy == Policy::always ? 10U : 1U);
        EXPECT_EQ(walker->ends, policy == Policy::always ? 10 : 1);
    }
}

TEST(WalkSlices, ByTimeYieldsAtTheSixteenthElementAfterItsTimeAndAMoreUrgentTaskGetsItsTurn) {
    Kiln::VirtualClock clock;
    const auto scheduler = Vel::make<Kiln::TaskScheduler>(clock, make(Policy::byTime));
    const auto walker = Vel::make<Walker>(scheduler);
    std::size_t seenByUrgent = 0;
    Kiln::Task urgent{scheduler, "urgent", 1, [&] {
                          seenByUrgent = walker->seen.size();
                          return false;
                      }};
    walker->process = [&](int key) {
        clock.advance(std::chrono::microseconds{100});
        if (key == 40) { urgent.schedule(); }
    };
    for (int key = 0; key < 64; ++key) { walker->add(key); }
    scheduler->runUntilIdle();
    // 2 ms are 20 elements, noticed at 32; 41 is reached in the second slice, which ends at once.
    EXPECT_EQ(seenByUrgent, 41U);
    EXPECT_EQ(walker->seen.size(), 64U);
    EXPECT_EQ(walker->walkStatistics().runs, 3U);
}

TEST(WalkSlices, AnElementOfACollectionAllocatesNothing) {
    const Kiln::VirtualClock clock;
    const auto scheduler = Vel::make<Kiln::TaskScheduler>(clock, make(Policy::never));
    const auto walker = Vel::make<Walker>(scheduler);
    Vel::Collection<int, int> all;
    constexpr int kCount = 10'000;
    for (int key = 0; key < kCount; ++key) { all.set(key, 0); }
    walker->seen.reserve(kCount);
    walker->addAll(all);
    const TestSupport::AllocationCount count;
    scheduler->runUntilIdle();
    EXPECT_LE(count.since(), 4U);  // of the run as a whole, not of an element
    EXPECT_EQ(walker->seen.size(), static_cast<std::size_t>(kCount));
}

TEST(FreeInSlices, FreesWhenNothingElseIsToBeDoneSliceBySlice) {
    const Kiln::VirtualClock clock;
    const auto scheduler = Vel::make<Kiln::TaskScheduler>(clock, make(Policy::always));
    const auto value = std::make_shared<int>(0);
    constexpr int kCount = 1000;
    std::map<int, std::shared_ptr<int>> container;
    for (int i = 0; i < kCount; ++i) { container.emplace(i, value); }
    Kiln::freeInSlices(*scheduler, std::move(container));
    EXPECT_EQ(value.use_count(), 1 + kCount) << "nothing yet";
    int runs = 0;
    Kiln::Task other{scheduler, "Other", 97, [&] {
                         EXPECT_EQ(value.use_count(), 1 + kCount) << "the more urgent first";
                         return ++runs < 3;
                     }};
    other.schedule();
    long most = 0;
    long before = value.use_count();
    const auto watch = scheduler->onSliceEnd().subscribe([&] {
        most = std::max(most, before - value.use_count());
        before = value.use_count();
    });
    scheduler->runUntilIdle();
    EXPECT_EQ(runs, 3);
    EXPECT_EQ(value.use_count(), 1);
    EXPECT_LE(most, 2) << "one a slice";
    EXPECT_EQ(scheduler->tasks().size(), 1U) << "its task is gone too";
}

TEST(FreeInSlices, FreesAFewAtOnce) {
    const Kiln::VirtualClock clock;
    const auto scheduler = Vel::make<Kiln::TaskScheduler>(clock, make(Policy::always));
    const auto value = std::make_shared<int>(0);
    Kiln::freeInSlices(*scheduler, std::map<int, std::shared_ptr<int>>{{1, value}, {2, value}});
    EXPECT_EQ(value.use_count(), 1);
}

}  // namespace

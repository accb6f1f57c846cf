#include "platform/Kiln/TaskScheduler.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "test/support/AllocationCount.h"
#include "test/support/TraceCapture.h"

namespace {

using namespace std::chrono_literals;
using Seen = std::vector<std::string>;

class Pipe {
public:
    Pipe() { EXPECT_EQ(::pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK), 0); }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    int in() const { return ends_[0]; }
    int out() const { return ends_[1]; }
    void write() const { EXPECT_EQ(::write(out(), "x", 1), 1); }
    void read() const {
        char byte = 0;
        EXPECT_EQ(::read(in(), &byte, 1), 1);
    }

private:
    std::array<int, 2> ends_{};
};

class SchedulerTest : public testing::Test {
protected:
    /// A task that notes its name and answers that no work is pending.
    std::unique_ptr<Kiln::Task> noting(const std::string& name, Kiln::TaskPriority priority) {
        return std::make_unique<Kiln::Task>(scheduler_, name, priority, [this, name] {
            seen_.push_back(name);
            return false;
        });
    }
    Kiln::VirtualClock clock_;
    Vel::Ref<Kiln::TaskScheduler> scheduler_ =
        Vel::make<Kiln::TaskScheduler>(clock_, std::make_unique<Kiln::NeverYield>());
    Seen seen_;
};

TEST_F(SchedulerTest, ASmallerPriorityRunsFirst) {
    const auto c = noting("c", 4);
    const auto a = noting("a", 2);
    const auto b = noting("b", 3);
    for (const auto* task : {&c, &a, &b}) { (*task)->schedule(); }
    EXPECT_TRUE(scheduler_->runUntilIdle());
    EXPECT_EQ(seen_, (Seen{"a", "b", "c"}));
    EXPECT_FALSE(scheduler_->runUntilIdle());
}

TEST_F(SchedulerTest, AMoreUrgentTaskGoesBeforeAllPendingOnesHoweverOftenItRuns) {
    int left = 100;
    const auto idle = noting("idle", 5);
    Kiln::Task busy{scheduler_, "busy", 4, [&] {
                        EXPECT_TRUE(seen_.empty());
                        return --left > 0;
                    }};
    idle->schedule();
    busy.schedule();
    scheduler_->runUntilIdle();
    EXPECT_EQ(busy.statistics().runs, 100U);
    EXPECT_EQ(seen_, Seen{"idle"});
}

TEST_F(SchedulerTest, TasksOfOnePriorityTakeTurns) {
    int leftA = 3;
    int leftB = 3;
    Kiln::Task a{scheduler_, "a", 3, [&] {
                     seen_.push_back("a");
                     return --leftA > 0;
                 }};
    Kiln::Task b{scheduler_, "b", 3, [&] {
                     seen_.push_back("b");
                     return --leftB > 0;
                 }};
    a.schedule();
    b.schedule();
    scheduler_->runUntilIdle();
    EXPECT_EQ(seen_, (Seen{"a", "b", "a", "b", "a", "b"}));
}

TEST_F(SchedulerTest, ATaskRunsOncePerSchedulingHoweverOftenItIsAskedFor) {
    const auto a = noting("a", 3);
    a->schedule();
    a->schedule();
    EXPECT_TRUE(a->scheduled());
    scheduler_->runUntilIdle();
    EXPECT_EQ(seen_, Seen{"a"});
    EXPECT_FALSE(a->scheduled());
}

TEST_F(SchedulerTest, ATaskThatSchedulesItselfRunsAgain) {
    int left = 3;
    std::optional<Kiln::Task> task;
    task.emplace(scheduler_, "self", 3, [&] {
        if (--left > 0) { task->schedule(); }
        return false;
    });
    task->schedule();
    scheduler_->runUntilIdle();
    EXPECT_EQ(left, 0);
}

TEST_F(SchedulerTest, UnscheduleTakesBothBack) {
    const auto a = noting("a", 3);
    const auto b = noting("b", 3);
    a->schedule();
    b->schedule();
    a->scheduleAfter(1s);
    a->unschedule();
    EXPECT_FALSE(a->scheduled());
    clock_.advance(2s);
    scheduler_->runUntilIdle();
    EXPECT_EQ(seen_, Seen{"b"});
    a->schedule();
    scheduler_->runUntilIdle();
    EXPECT_EQ(seen_, (Seen{"b", "a"}));
}

TEST_F(SchedulerTest, RunningIsTrueInsideTheRunOnly) {
    std::optional<Kiln::Task> task;
    const auto other = noting("other", 3);
    bool inside = false;
    bool otherInside = true;
    task.emplace(scheduler_, "task", 3, [&] {
        inside = task->running();
        otherInside = other->running();
        return false;
    });
    task->schedule();
    EXPECT_FALSE(task->running());
    scheduler_->runUntilIdle();
    EXPECT_TRUE(inside);
    EXPECT_FALSE(otherInside);
    EXPECT_FALSE(task->running());
}

TEST_F(SchedulerTest, ATaskMayBeDeletedInsideItsOwnRunThoughWorkIsPending) {
    std::unique_ptr<Kiln::Task> task;
    const auto held = std::make_shared<int>(1);
    task = std::make_unique<Kiln::Task>(scheduler_, "task", 3, [&task, &seen = seen_, held] {
        task.reset();
        seen.push_back("still " + std::to_string(*held));
        return true;
    });
    task->schedule();
    scheduler_->runUntilIdle();
    EXPECT_EQ(seen_, Seen{"still 1"});
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_TRUE(scheduler_->tasks().empty());
}

TEST_F(SchedulerTest, ATaskThatDiesWhileItWaitsIsNotRunAndFreesWhatItHolds) {
    const auto held = std::make_shared<int>(1);
    auto task = std::make_unique<Kiln::Task>(scheduler_, "task", 3, [held] { return false; });
    task->schedule();
    task->scheduleAfter(1s);
    task.reset();
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_FALSE(scheduler_->runUntilIdle());
}

TEST_F(SchedulerTest, WhatATaskThrowsIsTracedAndCountedAndTheOthersRun) {
    const TestSupport::TraceCapture trace;
    Kiln::Task bad{scheduler_, "bad", 3, []() -> bool { throw std::runtime_error{"why"}; }};
    Kiln::Task worse{scheduler_, "worse", 3, []() -> bool { throw 42; }};
    const auto good = noting("good", 3);
    bad.schedule();
    worse.schedule();
    good->schedule();
    scheduler_->runUntilIdle();
    EXPECT_EQ(seen_, Seen{"good"});
    EXPECT_EQ(bad.statistics().exceptions, 1U);
    EXPECT_EQ(bad.statistics().lastException, "why");
    EXPECT_EQ(worse.statistics().exceptions, 1U);
    EXPECT_TRUE(trace.has("task bad threw: why"));
    bad.schedule();
    scheduler_->runUntilIdle();
    EXPECT_EQ(bad.statistics().exceptions, 2U);
}

TEST_F(SchedulerTest, StatisticsCountRunsTotalAndLongestSlice) {
    std::vector<Kiln::Duration> slices{1ms, 5ms, 2ms};
    std::size_t next = 0;
    Kiln::Task task{scheduler_, "task", 7, [&] {
                        clock_.advance(slices[next++]);
                        return next < slices.size();
                    }};
    task.schedule();
    scheduler_->runUntilIdle();
    const auto all = scheduler_->tasks();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].name, "task");
    EXPECT_EQ(all[0].priority, 7);
    EXPECT_EQ(all[0].runs, 3U);
    EXPECT_EQ(all[0].total, 8ms);
    EXPECT_EQ(all[0].longestSlice, 5ms);
    EXPECT_EQ(all[0].exceptions, 0U);
}

TEST_F(SchedulerTest, ARunAllocatesNothingOfItsOwn) {
    int left = 0;
    Kiln::Task a{scheduler_, "a", 3, [&] { return --left > 0; }};
    const auto run = [&] {
        left = 1000;
        a.schedule();
        scheduler_->runUntilIdle();
    };
    run();
    const TestSupport::AllocationCount count;
    run();
    EXPECT_LE(count.since(), 1000U / 32U + 1U);  // the queue moves on by blocks of 32
}

struct GroupCase {
    std::string_view name;
    int enforcement;
    Kiln::TaskPriority wanted;
    Kiln::TaskPriority want;
};
constexpr GroupCase kGroupCases[] = {
    {"NoughtLeavesAMoreUrgentTask", 0, 1, 1},
    {"NoughtLeavesALessUrgentTask", 0, 9, 9},
    {"OneHoldsAMoreUrgentTaskBack", 1, 1, 3},
    {"OneLeavesALessUrgentTask", 1, 9, 9},
    {"TwoHoldsAMoreUrgentTaskBack", 2, 1, 3},
    {"TwoLiftsALessUrgentTask", 2, 9, 3},
};
class GroupPriority : public SchedulerTest, public testing::WithParamInterface<GroupCase> {};

TEST_P(GroupPriority, IsEnforced) {
    const auto group = scheduler_->taskGroupIs("group", 3, GetParam().enforcement);
    const Kiln::Task task{scheduler_, "task", group, GetParam().wanted, [] { return false; }};
    EXPECT_EQ(task.statistics().priority, GetParam().want);
}
INSTANTIATE_TEST_SUITE_P(, GroupPriority, testing::ValuesIn(kGroupCases), [](const auto& row) {
    return std::string{row.param.name};
});

TEST_F(SchedulerTest, AGroupIsFoundByItsName) {
    const auto group = scheduler_->taskGroupIs("PelOpenConfig-GnmiNotify", 3, 2);
    EXPECT_EQ(group->name(), "PelOpenConfig-GnmiNotify");
    EXPECT_EQ(group->priority(), 3);
    EXPECT_EQ(group->priorityEnforcement(), 2);
    EXPECT_TRUE(scheduler_->taskGroupIs("PelOpenConfig-GnmiNotify", 3, 2) == group);
    const Kiln::Task task{scheduler_, "task", group, [] { return false; }};
    EXPECT_EQ(task.statistics().priority, 3);
}

TEST_F(SchedulerTest, ATimerRunsOnceAndNotBeforeItsTime) {
    const auto a = noting("a", 3);
    a->scheduleAfter(600s);
    EXPECT_TRUE(a->scheduled());
    clock_.advance(599'999ms);
    EXPECT_FALSE(scheduler_->runUntilIdle());
    clock_.advance(1ms);
    EXPECT_TRUE(scheduler_->runUntilIdle());
    EXPECT_EQ(seen_, Seen{"a"});
    clock_.advance(1200s);
    EXPECT_FALSE(scheduler_->runUntilIdle());
}

TEST_F(SchedulerTest, ALaterDelayTakesThePlaceOfTheEarlierOne) {
    const auto a = noting("a", 3);
    a->scheduleAfter(10s);
    a->scheduleAfter(20s);
    clock_.advance(10s);
    EXPECT_FALSE(scheduler_->runUntilIdle());
    clock_.advance(10s);
    scheduler_->runUntilIdle();
    EXPECT_EQ(seen_, Seen{"a"});
}

TEST_F(SchedulerTest, DueTimersOfOnePriorityRunInOrderOfTheirTimes) {
    const auto late = noting("late", 3);
    const auto early = noting("early", 3);
    const auto urgent = noting("urgent", 1);
    late->scheduleAfter(2s);
    early->scheduleAfter(1s);
    urgent->scheduleAfter(3s);
    clock_.advance(3s);
    scheduler_->runUntilIdle();
    EXPECT_EQ(seen_, (Seen{"urgent", "early", "late"}));
}

TEST_F(SchedulerTest, ATimerThatFallsDueDuringARunGoesNextWhenItIsMoreUrgent) {
    const auto timer = noting("timer", 1);
    timer->scheduleAfter(5ms);
    Kiln::Task slow{scheduler_, "slow", 3, [&] {
                        seen_.push_back("slow");
                        clock_.advance(5ms);
                        return seen_.size() < 3;
                    }};
    slow.schedule();
    scheduler_->runUntilIdle();
    EXPECT_EQ(seen_, (Seen{"slow", "timer", "slow"}));
}

TEST_F(SchedulerTest, ADescriptorIsToldWhileItIsReadableUntilTheWatchDies) {
    const Pipe pipe;
    auto watch = std::make_unique<Kiln::FdWatch>(scheduler_->watchReadable(pipe.in(), [&] {
        pipe.read();
        seen_.push_back("read");
    }));
    EXPECT_FALSE(scheduler_->runUntilIdle());
    pipe.write();
    pipe.write();
    EXPECT_TRUE(scheduler_->runUntilIdle());
    EXPECT_EQ(seen_, (Seen{"read", "read"}));
    watch.reset();
    pipe.write();
    EXPECT_FALSE(scheduler_->runUntilIdle());
}

TEST_F(SchedulerTest, AWatchMayEndInsideItsReactionAndItsReactionMayThrow) {
    const Pipe pipe;
    const TestSupport::TraceCapture trace;
    Kiln::FdWatch watch;
    watch = scheduler_->watchReadable(pipe.in(), [&] {
        seen_.push_back("once");
        watch = Kiln::FdWatch{};
        throw std::runtime_error{"why"};
    });
    pipe.write();
    scheduler_->runUntilIdle();
    EXPECT_EQ(seen_, Seen{"once"});
    EXPECT_TRUE(trace.has("reaction threw: why"));
}

TEST_F(SchedulerTest, OneDescriptorMayBeWatchedInBothDirections) {
    std::array<int, 2> pair{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), 0);
    {
        Kiln::FdWatch writable;
        const auto readable = scheduler_->watchReadable(pair[0], [&] {
            char byte = 0;
            EXPECT_EQ(::read(pair[0], &byte, 1), 1);
            seen_.push_back("readable");
        });
        writable = scheduler_->watchWritable(pair[0], [&] {
            seen_.push_back("writable");
            writable = Kiln::FdWatch{};
        });
        scheduler_->runUntilIdle();
        EXPECT_EQ(seen_, Seen{"writable"});
        EXPECT_EQ(::write(pair[1], "x", 1), 1);
        scheduler_->runUntilIdle();
        EXPECT_EQ(seen_, (Seen{"writable", "readable"}));
    }
    ::close(pair[0]);
    ::close(pair[1]);
}

TEST_F(SchedulerTest, ADescriptorsNumberMayBeWatchedAgainAfterItWasClosed) {
    for (int round = 0; round < 3; ++round) {
        const Pipe pipe;
        const auto watch = scheduler_->watchReadable(pipe.in(), [&] {
            pipe.read();
            seen_.push_back("read");
        });
        pipe.write();
        scheduler_->runUntilIdle();
    }
    EXPECT_EQ(seen_.size(), 3U);
}

TEST_F(SchedulerTest, DescriptorsGetTheirTurnWhileTasksAreBusy) {
    const Pipe pipe;
    bool told = false;
    const auto watch = scheduler_->watchReadable(pipe.in(), [&] {
        pipe.read();
        told = true;
    });
    int runs = 0;
    Kiln::Task busy{scheduler_, "busy", 0, [&] {
                        if (runs++ == 0) { pipe.write(); }
                        return !told && runs < 1000;
                    }};
    busy.schedule();
    scheduler_->runUntilIdle();
    EXPECT_TRUE(told);
    EXPECT_LE(runs, 33);
}

TEST_F(SchedulerTest, DescriptorsGetTheirTurnAfterTwoMillisecondsOfTasks) {
    const Pipe pipe;
    bool told = false;
    const auto watch = scheduler_->watchReadable(pipe.in(), [&] {
        pipe.read();
        told = true;
    });
    int runs = 0;
    Kiln::Task busy{scheduler_, "busy", 0, [&] {
                        if (runs++ == 0) { pipe.write(); }
                        clock_.advance(1ms);
                        return !told && runs < 1000;
                    }};
    busy.schedule();
    scheduler_->runUntilIdle();
    EXPECT_EQ(runs, 3);  // two of the first batch, then one that finds it told
}

TEST_F(SchedulerTest, TheSchedulerOutlivesItsWatches) {
    const Pipe pipe;
    auto watch = std::make_unique<Kiln::FdWatch>(scheduler_->watchReadable(pipe.in(), [] {}));
    scheduler_ = nullptr;
    watch.reset();
}

TEST_F(SchedulerTest, TheEndOfEachSliceIsPublished) {
    int ends = 0;
    const auto on = scheduler_->onSliceEnd().subscribe([&] {
        ++ends;
        throw std::runtime_error{"kept"};
    });
    int left = 3;
    Kiln::Task task{scheduler_, "task", 3, [&] { return --left > 0; }};
    task.schedule();
    scheduler_->runUntilIdle();
    EXPECT_EQ(ends, 3);
    scheduler_->post([] {});
    scheduler_->runUntilIdle();
    EXPECT_EQ(ends, 4);
}

TEST_F(SchedulerTest, PostedWorkRunsInOrderOnTheSchedulersThread) {
    const auto here = std::this_thread::get_id();
    std::thread{[this, here] {
        for (int i = 0; i < 3; ++i) {
            scheduler_->post([this, here, i] {
                EXPECT_EQ(std::this_thread::get_id(), here);
                seen_.push_back(std::to_string(i));
            });
        }
    }}.join();
    EXPECT_TRUE(seen_.empty());
    scheduler_->runUntilIdle();
    EXPECT_EQ(seen_, (Seen{"0", "1", "2"}));
}

TEST_F(SchedulerTest, WorkElsewhereLeavesTheSchedulerToOthersAndIsWaitedForByIdleness) {
    const auto here = std::this_thread::get_id();
    std::promise<void> taskRan;
    Kiln::Task task{scheduler_, "task", 3, [&] {
                        taskRan.set_value();
                        return false;
                    }};
    scheduler_->runElsewhere(
        [&] {
            EXPECT_NE(std::this_thread::get_id(), here);
            taskRan.get_future().wait();
            seen_.emplace_back("work");
        },
        [&] {
            EXPECT_EQ(std::this_thread::get_id(), here);
            seen_.emplace_back("done");
        });
    task.schedule();
    EXPECT_TRUE(scheduler_->runUntilIdle());
    EXPECT_EQ(seen_, (Seen{"work", "done"}));
    EXPECT_FALSE(scheduler_->runUntilIdle());
}

TEST_F(SchedulerTest, WhatWorkElsewhereThrowsIsTracedAndItIsDone) {
    const TestSupport::TraceCapture traces;
    scheduler_->runElsewhere([] { throw std::runtime_error{"torn"}; },
                             [this] { seen_.emplace_back("done"); });
    scheduler_->runUntilIdle();
    EXPECT_EQ(seen_, (Seen{"done"}));
    EXPECT_TRUE(traces.has("work elsewhere threw: torn"));
}

TEST_F(SchedulerTest, TheSchedulersEndWaitsForWorkElsewhereAndDropsWhatWasToFollow) {
    std::atomic<bool> worked{false};
    scheduler_->runElsewhere([&] { worked = true; }, [this] { seen_.emplace_back("done"); });
    scheduler_ = nullptr;
    EXPECT_TRUE(worked);
    EXPECT_TRUE(seen_.empty());
}

TEST(SchedulerRun, SleepsUntilPostedToAndEndsWithStop) {
    Vel::releaseEntityThread();
    const Kiln::SteadyClock clock;
    const auto scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::YieldByTime>());
    int posted = 0;
    std::thread other{[&] {
        for (int i = 0; i < 1000; ++i) {
            scheduler->post([&posted] { ++posted; });
        }
        scheduler->stop();
    }};
    scheduler->run();
    other.join();
    EXPECT_EQ(posted, 1000);
    EXPECT_TRUE(scheduler->tasks().empty());
}

TEST(SchedulerRun, WakesForATimerOfTheRealClock) {
    const Kiln::SteadyClock clock;
    const auto scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::YieldByTime>());
    const auto begun = clock.now();
    Kiln::Task timer{scheduler, "timer", 3, [&] {
                         scheduler->stop();
                         return false;
                     }};
    timer.scheduleAfter(20ms);
    scheduler->run();
    EXPECT_GE(clock.now() - begun, 20ms);
    EXPECT_EQ(timer.statistics().runs, 1U);
}

/// Time passes from each look to the next, as for a thread that is often put aside.
class RestlessClock final : public Kiln::Clock {
public:
    Kiln::TimePoint now() const override { return Kiln::TimePoint{} + ++looks_ * 1ms; }
    std::int64_t wallNanoseconds() const override { return 0; }

private:
    mutable int looks_ = 0;
};

TEST(SchedulerRun, DoesNotSleepOnWhenATimerBecomesDueOnTheWayToSleep) {
    const RestlessClock clock;
    const auto scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::NeverYield>());
    int runs = 0;
    Kiln::Task timer{scheduler, "timer", 3, [&] {
                         if (++runs == 100) { scheduler->stop(); }
                         timer.scheduleAfter(runs % 10 * 1ms);
                         return false;
                     }};
    timer.schedule();
    scheduler->run();
    EXPECT_EQ(runs, 100);
}

TEST(SchedulerRun, StopsThoughATaskIsAlwaysBusyAndRunsAgain) {
    const Kiln::SteadyClock clock;
    const auto scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::YieldByTime>());
    std::uint64_t runs = 0;
    Kiln::Task busy{scheduler, "busy", 3, [&] {
                        if (++runs % 100 == 0) { scheduler->stop(); }
                        return true;
                    }};
    busy.schedule();
    scheduler->run();
    const std::uint64_t first = runs;
    EXPECT_GE(first, 100U);
    scheduler->run();
    EXPECT_GT(runs, first);
}

TEST_F(SchedulerTest, ARunnableTaskOfMoreUrgencyEndsASliceByTimeButNotANeverEndingOne) {
    const auto urgent = noting("urgent", 2);
    const auto equal = noting("equal", 3);
    std::vector<bool> asked;
    Kiln::Task task{scheduler_, "task", 3, [&] {
                        equal->schedule();
                        asked.push_back(scheduler_->mustYield());
                        urgent->schedule();
                        asked.push_back(scheduler_->mustYield());
                        urgent->unschedule();
                        asked.push_back(scheduler_->taskShouldYield());
                        return false;
                    }};
    scheduler_->yieldPolicyIs(std::make_unique<Kiln::YieldByTime>());
    task.schedule();
    scheduler_->runUntilIdle();
    EXPECT_EQ(asked, (std::vector<bool>{false, true, false}));
    asked.clear();
    scheduler_->yieldPolicyIs(std::make_unique<Kiln::NeverYield>());
    task.schedule();
    scheduler_->runUntilIdle();
    EXPECT_EQ(asked, (std::vector<bool>{false, false, false}));
}

TEST(SchedulerDeathTest, APolicyIsNeeded) {
    const Kiln::VirtualClock clock;
    EXPECT_DEATH(Kiln::TaskScheduler(clock, nullptr), "assertion failed: policy_ != nullptr");
}

TEST(SchedulerDeathTest, ATaskCannotRunTheScheduler) {
    const Kiln::VirtualClock clock;
    const auto scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::NeverYield>());
    Kiln::Task task{scheduler, "task", 3, [&] { return scheduler->runUntilIdle(); }};
    task.schedule();
    EXPECT_DEATH(scheduler->runUntilIdle(), "assertion failed: current_ == nullptr");
}

}  // namespace

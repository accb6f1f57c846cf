#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/Kiln/Clock.h"
#include "platform/Kiln/Task.h"
#include "platform/Kiln/YieldPolicy.h"
#include "platform/Vel/Ref.h"
#include "platform/Vel/Subscription.h"

namespace Kiln {

/// A watched file descriptor; unwatches when it dies, which must be before the descriptor is
/// closed.
class [[nodiscard]] FdWatch {
public:
    struct Impl;
    FdWatch();
    explicit FdWatch(std::unique_ptr<Impl> impl);
    FdWatch(FdWatch&& other) noexcept;
    FdWatch& operator=(FdWatch&& other) noexcept;
    FdWatch(const FdWatch&) = delete;
    FdWatch& operator=(const FdWatch&) = delete;
    ~FdWatch();

private:
    std::unique_ptr<Impl> impl_;
};

/// The one thread on which everything of an agent runs: tasks by priority (smaller first, round
/// robin inside one priority), timers on the injected clock, file descriptors, and work posted by
/// other threads. All but post() and stop() belong to the scheduler's thread.
class TaskScheduler final : public Vel::RefCounted {
public:
    TaskScheduler(const Clock& clock, std::unique_ptr<YieldPolicy> policy);
    ~TaskScheduler() override;

    /// Runs until stop(). Sleeps when there is nothing to do.
    void run();
    /// Ends run(). Any thread.
    void stop();
    /// Runs what is runnable, due timers and ready descriptors included, until nothing is left;
    /// waits for nothing but what runs elsewhere. Answers whether anything ran.
    bool runUntilIdle();
    /// Has the scheduler call it on its own thread. Any thread.
    void post(std::function<void()> work);
    /// Runs work that blocks or takes longer than a slice on a thread of its own, and `done` as posted work when it
    /// has ended. If there can be no other thread: here, at once. The scheduler's end waits for the work, not for
    /// `done`.
    void runElsewhere(std::function<void()> work, std::function<void()> done);

    /// Calls the reaction while the descriptor is readable (writable). The descriptor stays the
    /// caller's; it is made non-blocking. At most one watch of each direction on a descriptor.
    FdWatch watchReadable(int fd, std::function<void()> reaction);
    FdWatch watchWritable(int fd, std::function<void()> reaction);

    /// Whether the running task's slice is over: its time is up or a more urgent task is runnable.
    bool mustYield();
    bool taskShouldYield() { return mustYield(); }
    void yieldPolicyIs(std::unique_ptr<YieldPolicy> policy) { policy_ = std::move(policy); }

    /// Runs `body` as a task that nobody owns, less urgent than all others, until it answers false.
    void runLast(std::string name, std::function<bool()> body);

    /// Published after each slice: each run of a task, each reaction to a descriptor, each posted
    /// work. What must not be held across slices (a read transaction) is given back here.
    Vel::Publisher<>& onSliceEnd() { return sliceEnd_; }

    Vel::Ref<TaskGroup> taskGroupIs(const std::string& name,
                                    TaskPriority priority,
                                    int enforcement);
    const Clock& clock() const { return clock_; }
    /// Name of the task that runs now; empty in a reaction and between slices.
    std::string runningTask() const;
    /// Statistics of all tasks alive, in order of creation.
    std::vector<TaskStatistics> tasks() const;

private:
    friend class Task;
    struct Loop;
    struct Polled;
    friend struct FdWatch::Impl;
    FdWatch watch(int fd, int direction, std::function<void()> reaction);
    using Queue = std::deque<std::shared_ptr<Task::Node>>;
    /// The most urgent queue with a task in it; the end when nothing is runnable.
    std::map<TaskPriority, Queue>::iterator firstReady();
    void ready(const std::shared_ptr<Task::Node>& node);
    void readyDel(Task::Node& node);
    void timerIs(const std::shared_ptr<Task::Node>& node, TimePoint due);
    void timerDel(Task::Node& node);
    void promoteDueTimers(TimePoint now);
    void runBatch();
    void runNext();
    void poll(bool block);
    void drainPosted();
    void react(const std::function<void()>& reaction);
    void endSlice();

    const Clock& clock_;
    std::unique_ptr<YieldPolicy> policy_;
    // Every node in them is ready. Queues stay when they are empty, so that a run allocates
    // nothing.
    std::map<TaskPriority, Queue> ready_;
    std::multimap<TimePoint, std::shared_ptr<Task::Node>> timers_;
    std::vector<std::weak_ptr<Task::Node>> all_;
    std::map<std::string, Vel::Ref<TaskGroup>> groups_;
    std::shared_ptr<Task::Node> current_;
    TimePoint lastRunEnded_{};
    std::unique_ptr<Loop> loop_;
    std::mutex postedMutex_;
    std::vector<std::function<void()>> posted_;
    std::map<std::uint64_t, std::future<void>> elsewhere_;  // by number
    std::uint64_t lastElsewhere_ = 0;
    Vel::Publisher<> sliceEnd_;
    bool stopped_ = false;
    std::uint64_t activity_ = 0;  // counts reactions, so that idleness is noticed
};

}  // namespace Kiln

#include "platform/Kiln/TaskScheduler.h"

#include <uv.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <utility>

#include "platform/Blink/Trace.h"
#include "platform/Kiln/TaskNode.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("Kiln");

namespace Kiln {
namespace {

/// Runs a step; what it throws stays here.
template <class Step>
void guarded(const char* name, const Step& step) {
    try {
        step();
    } catch (const std::exception& error) {
        TRACE5("{} threw: {}", name, error.what());
    } catch (...) { TRACE5("{} threw what is no exception", name); }
}

void failed(TaskStatistics& statistics, const char* what) {
    ++statistics.exceptions;
    statistics.lastException = what;
    TRACE5("task {} threw: {}", statistics.name, what);
}

// Descriptors and posted work get their turn after so many tasks, or after this time.
constexpr int kTasksPerPoll = 32;
constexpr Duration kTimePerPoll = std::chrono::milliseconds{2};

constexpr TaskPriority kLast = 98;

enum Direction : std::size_t { kReadable, kWritable };

}  // namespace

struct TaskScheduler::Loop {
    uv_loop_t loop{};
    uv_async_t wakeUp{};
    uv_timer_t alarm{};
    std::map<int, Polled*> polled;  // by descriptor: the event library takes each only once
};

/// One watch. Its reaction is shared, so that it may end the watch while it runs.
struct FdWatch::Impl {
    Impl(TaskScheduler* owner,
         TaskScheduler::Polled* on,
         std::size_t which,
         std::function<void()> run)
        : scheduler{Vel::keepAlive(owner)},
          polled{on},
          direction{which},
          reaction{std::make_shared<std::function<void()>>(std::move(run))} {}
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;
    ~Impl();

    Vel::Ref<TaskScheduler> scheduler;  // outlives its watches
    TaskScheduler::Polled* polled;
    std::size_t direction;
    std::shared_ptr<std::function<void()>> reaction;
};

/// A descriptor with one or two watches. The event library's handle ends its life.
struct TaskScheduler::Polled {
    Polled(TaskScheduler& owner, int descriptor) : scheduler{owner}, fd{descriptor} {}

    void rearm() {
        const int events = (watches[kReadable] != nullptr ? UV_READABLE : 0) |
                           (watches[kWritable] != nullptr ? UV_WRITABLE : 0);
        if (events != 0) {
            VEL_ASSERT(uv_poll_start(&handle, events, onEvent) == 0);
            return;
        }
        scheduler.loop_->polled.erase(fd);
        uv_close(reinterpret_cast<uv_handle_t*>(&handle),
                 [](uv_handle_t* closed) { delete static_cast<Polled*>(closed->data); });
    }
    static void onEvent(uv_poll_t* handle, int status, int events) {
        auto* self = static_cast<Polled*>(handle->data);
        // After an error both are told: they find it when they read or write.
        const int told = status < 0 ? UV_READABLE | UV_WRITABLE : events;
        if ((told & UV_READABLE) != 0) { self->react(kReadable); }
        if ((told & UV_WRITABLE) != 0) { self->react(kWritable); }
    }
    void react(std::size_t direction) {
        if (watches[direction] == nullptr) { return; }
        const std::shared_ptr<std::function<void()>> reaction = watches[direction]->reaction;
        scheduler.react(*reaction);
    }

    TaskScheduler& scheduler;
    int fd;
    uv_poll_t handle{};
    std::array<FdWatch::Impl*, 2> watches{};
};

FdWatch::Impl::~Impl() {
    polled->watches[direction] = nullptr;
    polled->rearm();
}

FdWatch::FdWatch() = default;
FdWatch::FdWatch(std::unique_ptr<Impl> impl) : impl_{std::move(impl)} {}
FdWatch::FdWatch(FdWatch&& other) noexcept = default;
FdWatch& FdWatch::operator=(FdWatch&& other) noexcept = default;
FdWatch::~FdWatch() = default;

TaskScheduler::TaskScheduler(const Clock& clock, std::unique_ptr<YieldPolicy> policy)
    : clock_{clock}, policy_{std::move(policy)}, loop_{std::make_unique<Loop>()} {
    VEL_ASSERT(policy_ != nullptr);
    VEL_ASSERT(uv_loop_init(&loop_->loop) == 0);
    loop_->wakeUp.data = this;
    VEL_ASSERT(uv_async_init(&loop_->loop, &loop_->wakeUp, [](uv_async_t* handle) {
                   static_cast<TaskScheduler*>(handle->data)->drainPosted();
               }) == 0);
    VEL_ASSERT(uv_timer_init(&loop_->loop, &loop_->alarm) == 0);
}

TaskScheduler::~TaskScheduler() {
    elsewhere_.clear();  // which waits: they post
    uv_close(reinterpret_cast<uv_handle_t*>(&loop_->wakeUp), nullptr);
    uv_close(reinterpret_cast<uv_handle_t*>(&loop_->alarm), nullptr);
    uv_run(&loop_->loop, UV_RUN_NOWAIT);  // the closed handles' last calls
    VEL_ASSERT_TEXT(uv_loop_close(&loop_->loop) == 0, "no watch outlives its scheduler");
}

void TaskScheduler::run() {
    Vel::assertEntityThread();
    VEL_ASSERT(current_ == nullptr);
    stopped_ = false;
    while (!stopped_) {
        runBatch();
        poll(firstReady() == ready_.end());
    }
}

void TaskScheduler::stop() {
    post([this] { stopped_ = true; });
}

bool TaskScheduler::runUntilIdle() {
    VEL_ASSERT(current_ == nullptr);
    const std::uint64_t before = activity_;
    std::uint64_t last = 0;
    do {
        last = activity_;
        poll(false);
        runBatch();
        if (activity_ == last && !elsewhere_.empty()) { poll(true); }
    } while (activity_ != last || firstReady() != ready_.end() || !elsewhere_.empty());
    return activity_ != before;
}

void TaskScheduler::post(std::function<void()> work) {
    {
        const std::lock_guard lock{postedMutex_};
        posted_.push_back(std::move(work));
    }
    uv_async_send(&loop_->wakeUp);
}

void TaskScheduler::runElsewhere(std::function<void()> work, std::function<void()> done) {
    const std::uint64_t number = ++lastElsewhere_;
    auto thread =
        std::async(std::launch::async | std::launch::deferred,
                   [this, number, work = std::move(work), done = std::move(done)]() mutable {
                       guarded("work elsewhere", std::exchange(work, {}));
                       post([this, number, done = std::move(done)] {
                           elsewhere_.erase(number);
                           done();
                       });
                   });
    if (thread.wait_for(Duration::zero()) == std::future_status::deferred) { thread.wait(); }
    elsewhere_.emplace(number, std::move(thread));
}

void TaskScheduler::drainPosted() {
    std::vector<std::function<void()>> work;
    {
        const std::lock_guard lock{postedMutex_};
        work.swap(posted_);
    }
    for (const auto& item : work) { react(item); }
}

void TaskScheduler::react(const std::function<void()>& reaction) {
    ++activity_;
    policy_->sliceBegun(clock_);
    guarded("reaction", reaction);
    endSlice();
}

void TaskScheduler::endSlice() {
    guarded("end of slice", [this] { sliceEnd_.publish(); });
}

FdWatch TaskScheduler::watch(int fd, int direction, std::function<void()> reaction) {
    const auto which = static_cast<std::size_t>(direction);
    Polled*& polled = loop_->polled[fd];
    if (polled == nullptr) {
        polled = new Polled{*this, fd};
        VEL_ASSERT(uv_poll_init(&loop_->loop, &polled->handle, fd) == 0);
        polled->handle.data = polled;
    }
    VEL_ASSERT(polled->watches[which] == nullptr);
    auto impl = std::make_unique<FdWatch::Impl>(this, polled, which, std::move(reaction));
    polled->watches[which] = impl.get();
    polled->rearm();
    return FdWatch{std::move(impl)};
}

FdWatch TaskScheduler::watchReadable(int fd, std::function<void()> reaction) {
    return watch(fd, kReadable, std::move(reaction));
}

FdWatch TaskScheduler::watchWritable(int fd, std::function<void()> reaction) {
    return watch(fd, kWritable, std::move(reaction));
}

bool TaskScheduler::mustYield() {
    if (policy_->sliceOver(clock_)) { return true; }
    if (!policy_->yieldsToUrgent() || current_ == nullptr) { return false; }
    const auto first = firstReady();
    return first != ready_.end() && first->first < current_->statistics.priority;
}

Vel::Ref<TaskGroup> TaskScheduler::taskGroupIs(const std::string& name,
                                               TaskPriority priority,
                                               int enforcement) {
    Vel::Ref<TaskGroup>& group = groups_[name];
    if (!group) { group = Vel::make<TaskGroup>(name, priority, enforcement); }
    return group;
}

std::string TaskScheduler::runningTask() const {
    return current_ != nullptr ? current_->statistics.name : std::string{};
}

std::vector<TaskStatistics> TaskScheduler::tasks() const {
    std::vector<TaskStatistics> result;
    for (const auto& weak : all_) {
        const auto node = weak.lock();
        if (node != nullptr && !node->cancelled) { result.push_back(node->statistics); }
    }
    return result;
}

void TaskScheduler::runLast(std::string name, std::function<bool()> body) {
    const auto node = std::make_shared<Task::Node>();
    node->body = std::move(body);
    node->statistics.name = std::move(name);
    node->statistics.priority = kLast;
    all_.push_back(node);
    ready(node);
}

std::map<TaskPriority, TaskScheduler::Queue>::iterator TaskScheduler::firstReady() {
    return std::find_if(
        ready_.begin(), ready_.end(), [](const auto& queue) { return !queue.second.empty(); });
}

void TaskScheduler::ready(const std::shared_ptr<Task::Node>& node) {
    if (node->ready || node->cancelled) { return; }
    node->ready = true;
    ready_[node->statistics.priority].push_back(node);
}

void TaskScheduler::readyDel(Task::Node& node) {
    if (!node.ready) { return; }
    node.ready = false;
    std::erase_if(ready_[node.statistics.priority],
                  [&node](const auto& queued) { return queued.get() == &node; });
}

void TaskScheduler::timerIs(const std::shared_ptr<Task::Node>& node, TimePoint due) {
    timerDel(*node);
    node->timer = timers_.emplace(due, node);
    node->hasTimer = true;
}

void TaskScheduler::timerDel(Task::Node& node) {
    if (!node.hasTimer) { return; }
    timers_.erase(node.timer);
    node.hasTimer = false;
}

void TaskScheduler::promoteDueTimers(TimePoint now) {
    while (!timers_.empty() && timers_.begin()->first <= now) {
        const std::shared_ptr<Task::Node> node = timers_.begin()->second;
        timerDel(*node);
        ready(node);
    }
}

void TaskScheduler::runBatch() {
    const TimePoint begun = clock_.now();
    promoteDueTimers(begun);
    for (int i = 0; i < kTasksPerPoll && firstReady() != ready_.end(); ++i) {
        runNext();
        promoteDueTimers(lastRunEnded_);
        if (lastRunEnded_ - begun >= kTimePerPoll) { break; }
    }
}

void TaskScheduler::runNext() {
    Queue& queue = firstReady()->second;
    const std::shared_ptr<Task::Node> node = std::move(queue.front());
    queue.pop_front();
    node->ready = false;
    ++activity_;
    const TimePoint begun = clock_.now();
    policy_->sliceBegun(clock_);
    current_ = node;
    bool pending = false;
    try {
        pending = node->body();
    } catch (const std::exception& error) { failed(node->statistics, error.what()); } catch (...) {
        failed(node->statistics, "what is no exception");
    }
    endSlice();
    current_.reset();
    lastRunEnded_ = clock_.now();
    const Duration taken = lastRunEnded_ - begun;
    ++node->statistics.runs;
    node->statistics.total += taken;
    node->statistics.longestSlice = std::max(node->statistics.longestSlice, taken);
    if (pending) { ready(node); }
}

void TaskScheduler::poll(bool block) {
    if (block && !timers_.empty()) {
        const Duration wait = timers_.begin()->first - clock_.now();
        const auto milliseconds =
            std::chrono::ceil<std::chrono::milliseconds>(std::max(wait, Duration{0})).count();
        uv_update_time(&loop_->loop);
        // Timers run before the loop works out how long to sleep. One that is due by then would leave nothing to
        // wake up for: told to stop, the loop does not sleep at all.
        uv_timer_start(
            &loop_->alarm,
            [](uv_timer_t* alarm) { uv_stop(alarm->loop); },
            static_cast<std::uint64_t>(milliseconds),
            0);
    }
    uv_run(&loop_->loop, block ? UV_RUN_ONCE : UV_RUN_NOWAIT);
    uv_timer_stop(&loop_->alarm);
}

}  // namespace Kiln

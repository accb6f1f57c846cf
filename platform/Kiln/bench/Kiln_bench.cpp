#include <absl/container/btree_set.h>
#include <benchmark/benchmark.h>

#include <functional>
#include <memory>

#include "platform/Kiln/TaskScheduler.h"
#include "platform/Kiln/WalkMachine.h"
#include "platform/Vel/Collection.h"

namespace {

class Walker final : public Kiln::WalkMachine<int> {
public:
    explicit Walker(const Vel::Ref<Kiln::TaskScheduler>& scheduler)
        : WalkMachine{scheduler, "walk", 3} {}
    void add(int key) { backlogIs(key); }
    void addAll(const Vel::Collection<int, int>& all) {
        backlogAddAll([&all](const std::optional<int>& after) { return all.nextKey(after); });
    }
    void go() { scheduleWalk(); }
    std::int64_t sum = 0;

protected:
    void backlogProcessElem(const int& key) override { sum += key; }
};

struct Setting {
    Kiln::SteadyClock clock;
    Vel::Ref<Kiln::TaskScheduler> scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::YieldByTime>());
};

/// Yardstick of the walk: fill an ordered set and take its keys out one by one.
void BM_Yardstick_OrderedSet(benchmark::State& state) {
    const auto count = static_cast<int>(state.range(0));
    absl::btree_set<int> keys;
    std::int64_t sum = 0;
    for (auto _ : state) {
        for (int key = 0; key < count; ++key) { keys.insert(key); }
        while (!keys.empty()) {
            sum += *keys.begin();
            keys.erase(keys.begin());
        }
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_Yardstick_OrderedSet)->Arg(1'000)->Arg(100'000);

void BM_WalkMachine_WalkKeys(benchmark::State& state) {
    const Setting setting;
    const auto walker = Vel::make<Walker>(setting.scheduler);
    const auto count = static_cast<int>(state.range(0));
    for (auto _ : state) {
        for (int key = 0; key < count; ++key) { walker->add(key); }
        walker->go();
        setting.scheduler->runUntilIdle();
    }
    benchmark::DoNotOptimize(walker->sum);
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_WalkMachine_WalkKeys)->Arg(1'000)->Arg(100'000);

void BM_WalkMachine_WalkCollection(benchmark::State& state) {
    const Setting setting;
    const auto walker = Vel::make<Walker>(setting.scheduler);
    const auto count = static_cast<int>(state.range(0));
    Vel::Collection<int, int> all;
    for (int key = 0; key < count; ++key) { all.set(key, key); }
    for (auto _ : state) {
        walker->addAll(all);
        walker->go();
        setting.scheduler->runUntilIdle();
    }
    benchmark::DoNotOptimize(walker->sum);
    state.SetItemsProcessed(state.iterations() * count);
}
BENCHMARK(BM_WalkMachine_WalkCollection)->Arg(1'000)->Arg(100'000);

/// Yardstick of the task run: the body through its function object and two readings of the clock.
void BM_Yardstick_CallAndTwoClockReads(benchmark::State& state) {
    const Kiln::SteadyClock clock;
    int left = 0;
    const std::function<bool()> body = [&left] { return --left > 0; };
    for (auto _ : state) {
        benchmark::DoNotOptimize(clock.now());
        benchmark::DoNotOptimize(body());
        benchmark::DoNotOptimize(clock.now());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Yardstick_CallAndTwoClockReads);

void BM_Task_Run(benchmark::State& state) {
    const Setting setting;
    constexpr int kRuns = 1'000;
    int left = 0;
    Kiln::Task task{setting.scheduler, "task", 3, [&left] { return --left > 0; }};
    for (auto _ : state) {
        left = kRuns;
        task.schedule();
        setting.scheduler->runUntilIdle();
    }
    state.SetItemsProcessed(state.iterations() * kRuns);
}
BENCHMARK(BM_Task_Run);

}  // namespace

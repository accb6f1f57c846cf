#include <benchmark/benchmark.h>

#include <functional>
#include <vector>

#include "platform/Vel/Sm.h"
#include "platform/Vel/Subscription.h"

namespace {

struct Machine final : Vel::Sm {
    explicit Machine(Vel::Publisher<int>& publisher)
        : on{publisher.subscribe(this, &Machine::handle)} {}
    void handle(int value) { sum += value; }
    std::int64_t sum = 0;
    Vel::Subscription on;
};

/// Yardstick: the same calls through a plain vector of function objects.
void BM_Yardstick_FunctionVector(benchmark::State& state) {
    std::int64_t sum = 0;
    const std::vector<std::function<void(int)>> reactions(static_cast<std::size_t>(state.range(0)),
                                                          [&sum](int value) { sum += value; });
    for (auto _ : state) {
        for (const auto& reaction : reactions) { reaction(1); }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Yardstick_FunctionVector)->Arg(1)->Arg(4);

void BM_Publisher_Publish(benchmark::State& state) {
    Vel::Publisher<int> publisher;
    std::vector<Vel::Ref<Machine>> machines;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        machines.push_back(Vel::make<Machine>(publisher));
    }
    for (auto _ : state) {
        publisher.publish(1);
        benchmark::DoNotOptimize(machines.front()->sum);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Publisher_Publish)->Arg(1)->Arg(4);

}  // namespace

#include <benchmark/benchmark.h>
#include <time.h>

#include <cstring>
#include <filesystem>

#include "platform/Blink/RingFile.h"
#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("TraceBench");

namespace {

/// Yardstick: what any time-stamped record costs at the least, a clock read and a copy of 32 bytes.
void BM_Yardstick_ClockAndCopy(benchmark::State& state) {
    char to[32];
    char from[32] = {};
    for (auto _ : state) {
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        std::memcpy(from, &now, sizeof now);
        std::memcpy(to, from, sizeof to);
        benchmark::DoNotOptimize(to);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Yardstick_ClockAndCopy);

void BM_Trace_CallOff(benchmark::State& state) {
    Blink::shutdown();
    int number = 0;
    for (auto _ : state) {
        TRACE9("nhId {}", ++number);
        benchmark::DoNotOptimize(number);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Trace_CallOff);

void BM_Trace_CallOn(benchmark::State& state) {
    if (state.thread_index() == 0) {
        Blink::rootIs(std::filesystem::temp_directory_path());
        Blink::init("-%d-bench.bk", nullptr, nullptr, 0, 24, Blink::Threading::multi, false, 512);
    }
    int number = 0;
    for (auto _ : state) {
        TRACE9("nhId {} with {}", ++number, "a text");
        benchmark::DoNotOptimize(number);
    }
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0) {
        std::filesystem::remove(Blink::defaultHandle()->path());
        Blink::shutdown();
    }
}
BENCHMARK(BM_Trace_CallOn)->Threads(1)->Threads(2);

}  // namespace

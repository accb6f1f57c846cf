#include "bench/SliceMeter.h"

#include <time.h>

#include <algorithm>
#include <chrono>

namespace Bench {
namespace {

double threadCpuMs() {
    timespec cpu{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu);
    return static_cast<double>(cpu.tv_sec) * 1e3 + static_cast<double>(cpu.tv_nsec) / 1e6;
}

}  // namespace

void SliceMeter::watch(const Vel::Ref<Kiln::TaskScheduler>& scheduler) {
    scheduler_ = scheduler.get();
    onSliceEnd_ = scheduler->onSliceEnd().subscribe([this] { ended(); });
}

void SliceMeter::sliceBegun(const Kiln::Clock& clock) {
    policy_.sliceBegun(clock);
    begun_ = clock.now();
    cpuBegun_ = threadCpuMs();
}

void SliceMeter::ended() {
    const Kiln::Duration taken = scheduler_->clock().now() - begun_;
    const std::string name = scheduler_->runningTask();
    SliceRecord& record = records_[name.empty() ? "reaction" : name];
    record.longestMs =
        std::max(record.longestMs, std::chrono::duration<double, std::milli>(taken).count());
    const double cpu = threadCpuMs() - cpuBegun_;
    record.longestCpuMs = std::max(record.longestCpuMs, cpu);
    record.cpuMs += cpu;
    ++record.slices;
}

}  // namespace Bench

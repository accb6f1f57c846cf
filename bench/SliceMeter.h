#pragma once

#include <map>
#include <string>
#include <utility>

#include "platform/Kiln/TaskScheduler.h"

namespace Bench {

/// What is known of one task's slices.
struct SliceRecord {
    double longestMs = 0;     ///< by the clock: another process may have had the core
    double longestCpuMs = 0;  ///< CPU time of the thread
    double cpuMs = 0;         ///< of all its slices
    std::uint64_t slices = 0;
};

/// The time policy, with a look at every slice.
class SliceMeter final : public Kiln::YieldPolicy {
public:
    void sliceBegun(const Kiln::Clock& clock) override;
    bool sliceOver(const Kiln::Clock& clock) override { return policy_.sliceOver(clock); }
    bool yieldsToUrgent() const override { return true; }

    /// The scheduler that has this policy; before it runs.
    void watch(const Vel::Ref<Kiln::TaskScheduler>& scheduler);
    /// Of each task that ran, since it was last asked; reactions to descriptors and posted work
    /// count as one task "reaction".
    std::map<std::string, SliceRecord> take() { return std::exchange(records_, {}); }

private:
    void ended();

    Kiln::YieldByTime policy_;
    Kiln::TaskScheduler* scheduler_ = nullptr;
    Vel::Subscription onSliceEnd_;
    Kiln::TimePoint begun_{};
    double cpuBegun_ = 0;
    std::map<std::string, SliceRecord> records_;
};

}  // namespace Bench

#include "apps/forwarderd/KernelForwarder.h"

#include <algorithm>
#include <utility>

#include "platform/AgentHost/StandardStreams.h"

namespace Pel::Forwarder {
namespace {

// The kernel's socket overruns when nobody reads it; writing can wait. Counters take turns with it:
// below it they would never be written while routes keep changing.
constexpr Kiln::TaskPriority kSourcePriority = 3;
constexpr Kiln::TaskPriority kPublishPriority = 4;

}  // namespace

KernelForwarder::KernelForwarder(Vel::Ref<Kiln::TaskScheduler> scheduler,
                                 std::shared_ptr<Store::Environment> store,
                                 const Options& options)
    : scheduler_{std::move(scheduler)},
      writer_{std::move(store)},
      kernel_{fib_, scheduler_->clock()},
      publish_{flatten_, writer_, scheduler_->clock(), options.cellId, options.quietTime},
      source_{scheduler_, "KernelSource", kSourcePriority, [this] { return follow(); }},
      publisher_{scheduler_, "Publish", kPublishPriority, [this] { return write(); }},
      counters_{scheduler_, "Counters", kPublishPriority, [this] { return count(); }} {
    if (options.counterInterval > Kiln::Duration{}) {
        kernelCounters_.emplace(memberCounters_, scheduler_->clock(), options.counterInterval);
    }
}

std::string KernelForwarder::start() {
    if (std::string problem = publish_.open(); !problem.empty()) { return problem; }
    if (std::string problem = kernel_.open(); !problem.empty()) { return problem; }
    if (kernelCounters_) {
        if (std::string problem = kernelCounters_->open(); !problem.empty()) { return problem; }
        counterWatch_ =
            scheduler_->watchReadable(kernelCounters_->fd(), [this] { counters_.schedule(); });
    }
    watch_ = scheduler_->watchReadable(kernel_.fd(), [this] { source_.schedule(); });
    source_.schedule();
    return {};
}

bool KernelForwarder::follow() {
    const bool more = kernel_.run([this] { return scheduler_->mustYield(); });
    if (const auto wake = kernel_.wakeAt()) {
        source_.scheduleAfter(*wake - scheduler_->clock().now());
    }
    if (kernel_.complete()) { publisher_.schedule(); }
    return more;
}

bool KernelForwarder::write() {
    const bool more = publish_.run([this] { return scheduler_->mustYield(); });
    tellFailure();
    if (const auto wake = publish_.wakeAt()) {
        publisher_.scheduleAfter(*wake - scheduler_->clock().now());
    }
    if (publish_.ready() && !counterPublish_) {
        counterPublish_.emplace(memberCounters_, publish_.store(), writer_, scheduler_->clock());
        counters_.schedule();
    }
    return more;
}

bool KernelForwarder::count() {
    if (!counterPublish_) { return false; }
    const auto mustYield = [this] { return scheduler_->mustYield(); };
    if (kernelCounters_ && kernelCounters_->run(mustYield)) { return true; }
    if (counterPublish_->run(mustYield)) { return true; }
    Kiln::TimePoint wake = counterPublish_->wakeAt();
    if (kernelCounters_) { wake = std::min(wake, kernelCounters_->wakeAt().value_or(wake)); }
    counters_.scheduleAfter(wake - scheduler_->clock().now());
    return false;
}

void KernelForwarder::tellFailure() {
    if (publish_.failure() == told_) { return; }
    told_ = publish_.failure();
    AgentHost::tell("pel-forwarderd",
                    told_.empty() ? "publishing goes on" : "publishing stands still: " + told_);
}

}  // namespace Pel::Forwarder

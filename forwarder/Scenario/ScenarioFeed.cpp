#include "forwarder/Scenario/ScenarioFeed.h"

#include <utility>

namespace Pel::Forwarder {

namespace {

constexpr Kiln::TaskPriority kPriority = 4;

}  // namespace

ScenarioFeed::ScenarioFeed(Vel::Ref<Kiln::TaskScheduler> scheduler,
                           std::shared_ptr<Store::Environment> store,
                           std::unique_ptr<ChangeSource> source,
                           unsigned cellId,
                           std::function<void(const std::string&)> tell)
    : scheduler_{std::move(scheduler)},
      writer_{std::move(store)},
      source_{std::move(source)},
      publish_{*source_, writer_, scheduler_->clock(), cellId},
      tell_{std::move(tell)},
      task_{scheduler_, "Scenario", kPriority, [this] { return work(); }} {}

std::string ScenarioFeed::start() {
    std::string problem = publish_.open();
    if (problem.empty()) { task_.schedule(); }
    return problem;
}

bool ScenarioFeed::work() {
    const bool more = publish_.run([this] { return scheduler_->mustYield(); });
    tellFailure();
    const auto wake = publish_.wakeAt();
    if (!more && wake) { task_.scheduleAfter(*wake - scheduler_->clock().now()); }
    return more;
}

void ScenarioFeed::tellFailure() {
    if (publish_.failure() == told_) { return; }
    told_ = publish_.failure();
    tell_(told_.empty() ? "publishing goes on" : "publishing stands still: " + told_);
}

}  // namespace Pel::Forwarder

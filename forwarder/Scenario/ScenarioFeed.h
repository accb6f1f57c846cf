#pragma once

#include <functional>
#include <memory>
#include <string>

#include "forwarder/Scenario/ScenarioPublish.h"
#include "platform/Kiln/Task.h"
#include "platform/Kiln/TaskScheduler.h"
#include "platform/Store/Writer.h"

namespace Pel::Forwarder {

/// A source's state and changes into the store, as the task "Scenario".
class ScenarioFeed {
public:
    /// @param cellId prefix of cell-specific paths
    /// @param tell   is called with a sentence when publishing stands still, and when it goes on
    ScenarioFeed(Vel::Ref<Kiln::TaskScheduler> scheduler,
                 std::shared_ptr<Store::Environment> store,
                 std::unique_ptr<ChangeSource> source,
                 unsigned cellId,
                 std::function<void(const std::string&)> tell);
    ScenarioFeed(const ScenarioFeed&) = delete;
    ScenarioFeed& operator=(const ScenarioFeed&) = delete;

    /// Opens the store's tables and starts. Empty, or what went wrong.
    std::string start();
    const ScenarioPublish& publish() const { return publish_; }

private:
    bool work();
    void tellFailure();

    Vel::Ref<Kiln::TaskScheduler> scheduler_;
    Store::Writer writer_;
    std::unique_ptr<ChangeSource> source_;
    ScenarioPublish publish_;
    std::function<void(const std::string&)> tell_;
    std::string told_;
    Kiln::Task task_;
};

}  // namespace Pel::Forwarder

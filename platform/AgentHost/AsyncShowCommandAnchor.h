#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "platform/Kiln/TaskScheduler.h"
#include "platform/Vel/Entity.h"

namespace AgentHost {

/// What an agent's asynchronous show commands hold on to: the scheduler that runs them, and how
/// many requests are under way.
class AsyncShowCommandAnchor final : public Vel::Entity {
public:
    AsyncShowCommandAnchor(std::string name, Vel::Ref<Kiln::TaskScheduler> scheduler)
        : Vel::Entity{std::move(name)}, scheduler_{std::move(scheduler)} {}
    Kiln::TaskScheduler& scheduler() const { return *scheduler_; }
    /// Requests under way.
    std::size_t instances() const { return instances_; }

private:
    friend class AsyncShowCommandInstanceSm;  // counts itself
    Vel::Ref<Kiln::TaskScheduler> scheduler_;
    std::size_t instances_ = 0;
};

}  // namespace AgentHost

#include "platform/Kiln/Task.h"

#include "platform/Kiln/TaskNode.h"
#include "platform/Kiln/TaskScheduler.h"

namespace Kiln {

TaskPriority TaskGroup::effective(TaskPriority wanted) const {
    switch (enforcement_) {
        case 0:
            return wanted;
        case 1:
            return wanted < priority_ ? priority_ : wanted;
        default:
            return priority_;
    }
}

Task::Task(const Vel::Ref<TaskScheduler>& scheduler,
           std::string name,
           TaskPriority priority,
           std::function<bool()> body)
    : scheduler_{scheduler}, node_{std::make_shared<Node>()} {
    node_->body = std::move(body);
    node_->statistics.name = std::move(name);
    node_->statistics.priority = priority;
    std::erase_if(scheduler_->all_, [](const auto& node) { return node.expired(); });
    scheduler_->all_.push_back(node_);
}

Task::Task(const Vel::Ref<TaskScheduler>& scheduler,
           std::string name,
           const Vel::Ref<TaskGroup>& group,
           std::function<bool()> body)
    : Task{scheduler, std::move(name), group->priority(), std::move(body)} {}

Task::Task(const Vel::Ref<TaskScheduler>& scheduler,
           std::string name,
           const Vel::Ref<TaskGroup>& group,
           TaskPriority wanted,
           std::function<bool()> body)
    : Task{scheduler, std::move(name), group->effective(wanted), std::move(body)} {}

Task::~Task() {
    unschedule();
    node_->cancelled = true;
}

void Task::schedule() {
    scheduler_->ready(node_);
}

void Task::scheduleAfter(Duration delay) {
    scheduler_->timerIs(node_, scheduler_->clock().now() + delay);
}

void Task::unschedule() {
    scheduler_->timerDel(*node_);
    scheduler_->readyDel(*node_);
}

bool Task::scheduled() const {
    return node_->ready || node_->hasTimer;
}

bool Task::running() const {
    return scheduler_->current_ == node_;
}

const TaskStatistics& Task::statistics() const {
    return node_->statistics;
}

}  // namespace Kiln

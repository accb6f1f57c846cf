#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/Kiln/Clock.h"
#include "platform/Vel/Ref.h"

namespace Kiln {

class TaskScheduler;

/// Smaller runs first, strictly.
using TaskPriority = int;

/// What a scheduler remembers of a task; for operators.
struct TaskStatistics {
    std::string name;
    TaskPriority priority = 0;
    std::uint64_t runs = 0;
    Duration total{};
    Duration longestSlice{};
    std::uint64_t exceptions = 0;
    std::string lastException;
};

/// Tasks that belong together and share a priority.
class TaskGroup final : public Vel::RefCounted {
public:
    /// @param priorityEnforcement 0: a task's own priority holds; 1: it may not be more urgent than
    ///        the group's; 2: tasks of the group always run at the group's priority
    TaskGroup(std::string name, TaskPriority priority, int priorityEnforcement)
        : name_{std::move(name)}, priority_{priority}, enforcement_{priorityEnforcement} {}
    const std::string& name() const { return name_; }
    TaskPriority priority() const { return priority_; }
    int priorityEnforcement() const { return enforcement_; }
    /// The priority at which a task of this group runs that asked for `wanted`.
    TaskPriority effective(TaskPriority wanted) const;

private:
    std::string name_;
    TaskPriority priority_;
    int enforcement_;
};

/// A piece of work on the scheduler's thread: run when scheduled, once per scheduling. Owned by its
/// machine; its death cancels it, also inside its own run. What a run throws is caught, traced and
/// counted.
class Task {
public:
    /// @param body one slice of work; it answers true when work is still pending, and is then run
    ///        again after the others of its priority
    Task(const Vel::Ref<TaskScheduler>& scheduler,
         std::string name,
         TaskPriority priority,
         std::function<bool()> body);
    Task(const Vel::Ref<TaskScheduler>& scheduler,
         std::string name,
         const Vel::Ref<TaskGroup>& group,
         std::function<bool()> body);
    /// A task of a group that asks for a priority of its own; the group decides.
    Task(const Vel::Ref<TaskScheduler>& scheduler,
         std::string name,
         const Vel::Ref<TaskGroup>& group,
         TaskPriority wanted,
         std::function<bool()> body);
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;
    ~Task();

    /// Makes the task runnable; once, however often it is asked for.
    void schedule();
    /// Makes it runnable after the delay, in place of any earlier delay.
    void scheduleAfter(Duration delay);
    /// Takes back both. Inside the task's own run the answer of the run still counts.
    void unschedule();
    /// Runnable now or later.
    bool scheduled() const;
    /// Whether this task is the one now running.
    bool running() const;
    const TaskStatistics& statistics() const;

    /// The scheduler's part of a task; outlives the task while it runs.
    struct Node;

private:
    Vel::Ref<TaskScheduler> scheduler_;
    std::shared_ptr<Node> node_;
};

}  // namespace Kiln

#pragma once

#include <functional>
#include <string>

#include "platform/AgentHost/AsyncShowCommandInstanceSm.h"
#include "platform/Kiln/Task.h"

namespace AgentHost {

/// One asynchronous request under way: has its machine produce, one slice each time that it is
/// asked for more. So there is never more output than of one slice, which ends with the element
/// that fills the printer. Its death cancels the request.
class AsyncCommandRun {
public:
    /// @param produced called when there is output, or the request is done; not inside produce()
    AsyncCommandRun(const Vel::Ref<Kiln::TaskScheduler>& scheduler,
                    Vel::Ref<AsyncShowCommandInstanceSm> machine,
                    std::function<void()> produced);
    AsyncCommandRun(const AsyncCommandRun&) = delete;
    AsyncCommandRun& operator=(const AsyncCommandRun&) = delete;
    ~AsyncCommandRun();

    /// Asks for more; harmless while that is under way.
    void produce() { task_.schedule(); }
    /// All output has been produced, or the request has failed.
    bool done() const { return done_; }
    std::string takeOutput() { return machine_->printer()->takeOutput(); }
    std::size_t buffered() const { return machine_->printer()->buffered(); }
    std::string error() const { return machine_->printer()->error(); }

private:
    bool slice();

    Vel::Ref<AsyncShowCommandInstanceSm> machine_;
    std::function<void()> produced_;
    bool done_ = false;
    Kiln::Task task_;
};

}  // namespace AgentHost

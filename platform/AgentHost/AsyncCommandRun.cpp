#include "platform/AgentHost/AsyncCommandRun.h"

#include <exception>
#include <utility>

#include "platform/Blink/Trace.h"

BLINK_TRACE_HANDLE("AsyncCommandRun");

namespace AgentHost {
namespace {

constexpr Kiln::TaskPriority kPriority = 5;  // what is shown waits for what is exported

}  // namespace

AsyncCommandRun::AsyncCommandRun(const Vel::Ref<Kiln::TaskScheduler>& scheduler,
                                 Vel::Ref<AsyncShowCommandInstanceSm> machine,
                                 std::function<void()> produced)
    : machine_{std::move(machine)},
      produced_{std::move(produced)},
      task_{scheduler, "ShowCommand-" + machine_->params().command, kPriority, [this] {
                return slice();
            }} {}

AsyncCommandRun::~AsyncCommandRun() {
    machine_->hasNotificationActiveIs(false);
}

bool AsyncCommandRun::slice() {
    if (done_) { return false; }
    const std::string& command = machine_->params().command;
    try {
        machine_->produceOutput();
        done_ = machine_->allOutputProduced();
    } catch (const std::exception& error) {
        TRACE5("command {} threw: {}", command, error.what());
        machine_->printer()->cmdErr(command + ": " + error.what());
        done_ = true;
    } catch (...) {
        TRACE5("command {} threw what is no exception", command);
        machine_->printer()->cmdErr(command + ": threw what is no exception");
        done_ = true;
    }
    if (done_) { machine_->printer()->end(); }
    if (!done_ && buffered() == 0) { return true; }
    produced_();
    return false;
}

}  // namespace AgentHost

#pragma once

#include "platform/Kiln/TaskScheduler.h"

namespace AgentHost {

/// SIGTERM and SIGINT end the scheduler's run(). To be made before any other thread is: the signals
/// are blocked in this thread and in those that it starts.
class SignalStop {
public:
    explicit SignalStop(Vel::Ref<Kiln::TaskScheduler> scheduler);
    SignalStop(const SignalStop&) = delete;
    SignalStop& operator=(const SignalStop&) = delete;
    ~SignalStop();

private:
    void taken();

    Vel::Ref<Kiln::TaskScheduler> scheduler_;
    int fd_;
    Kiln::FdWatch watch_;
};

}  // namespace AgentHost

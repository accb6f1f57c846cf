#pragma once

#include "platform/AgentHost/AsyncShowCommandInstanceSm.h"

namespace AgentHost {

/// An asynchronous command as it is registered: makes the machine that serves a request.
class AsyncCommandCallback : public Vel::RefCounted {
public:
    /// A new machine. What it throws is the request's error.
    virtual Vel::Ref<AsyncShowCommandInstanceSm> createInstanceSm(const CommandRequest& params) = 0;
};

}  // namespace AgentHost

#pragma once

#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/AgentHost/AsyncCommandCallback.h"
#include "platform/AgentHost/CommandRequest.h"
#include "platform/Vel/Sm.h"

namespace AgentHost {

/// The commands that this process answers, by name. The host registers its own, the agent adds
/// what it shows. Scheduler's thread.
class CmdRequestDirSm final : public Vel::Sm {
public:
    /// Registers the command, in place of any of that name.
    void agentCommandCallbackIs(const std::string& command, CommandCallback callback);
    void agentDeferredCommandCallbackIs(const std::string& command,
                                        DeferredCommandCallback callback);
    /// Registers an asynchronous command. While a request is served and nothing else is sent, its
    /// client is sent a heartbeat.
    void agentCommandCallbackWithHeartbeatIs(const std::string& command,
                                             Vel::Ref<AsyncCommandCallback> callback);
    /// Requests under way are served to their end.
    void agentCommandCallbackDel(const std::string& command);

    /// Why there may be less commands now than at other times; told to who asks for one that is not
    /// there. Empty: there is no such reason.
    void absenceIs(std::string why) { absence_ = std::move(why); }

    /// Has the request answered, possibly inside this call. An unknown command and one that throws
    /// are answered with an error. For an asynchronous command there is no answer but the machine
    /// that serves the request, for the caller to have it produce the output.
    Vel::Ref<AsyncShowCommandInstanceSm> requestIs(const CommandRequest& request,
                                                   const CommandAnswer& answer);
    std::vector<std::string> commands() const;

private:
    using Callback = std::variant<DeferredCommandCallback, Vel::Ref<AsyncCommandCallback>>;
    std::map<std::string, Callback, std::less<>> callbacks_;
    std::string absence_;
};

}  // namespace AgentHost

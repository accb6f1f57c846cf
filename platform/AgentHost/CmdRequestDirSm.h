#pragma once

#include <map>
#include <string>
#include <vector>

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
    void agentCommandCallbackDel(const std::string& command);

    /// Has the request answered, possibly inside this call. An unknown command and one that throws
    /// are answered with an error.
    void requestIs(const CommandRequest& request, const CommandAnswer& answer);
    std::vector<std::string> commands() const;

private:
    std::map<std::string, DeferredCommandCallback, std::less<>> callbacks_;
};

}  // namespace AgentHost

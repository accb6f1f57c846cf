#pragma once

#include <vector>

#include "platform/AgentHost/CommandRequest.h"
#include "platform/Kiln/Task.h"
#include "platform/Vel/Subscription.h"

namespace AgentHost {

class Host;

/// The commands that any host answers, whatever its agent:
///
///     status              who runs, since when, where clients connect, how far the stores are read;
///                         then what the agent has to say, HostStatus has the first part.
///                         Parameter "colour": the text form shows in colour what is wrong
///     tasks               the scheduler's tasks with their runs and times
///     trace               sets text trace levels; parameter "levels", as in "Name=9,Other=5"
///     config reload       has the agent read its configuration again
///     commands            the names of all commands
class HostCommands {
public:
    /// Registers the commands; the host outlives it.
    explicit HostCommands(Host& host);

private:
    void status(const CommandRequest& request, const CommandAnswer& answer);
    CommandReply tasks(const CommandRequest& request) const;
    CommandReply trace(const CommandRequest& request) const;
    void configReload(const CommandAnswer& answer);
    CommandReply commands(const CommandRequest& request) const;
    void reloadWhenRead();
    void reinitialize(const CommandAnswer& answer);

    Host& host_;
    std::vector<CommandAnswer> waiting_;  // for a reload
    Kiln::Task reload_;
    Vel::Subscription onConfigurationRead_;  // while a reload waits for the store
};

}  // namespace AgentHost

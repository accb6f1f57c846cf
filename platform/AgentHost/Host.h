#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "platform/AgentHost/AgentBase.h"
#include "platform/AgentHost/AgentPlugin.h"
#include "platform/AgentHost/CommandServer.h"

namespace AgentHost {

class HostCommands;
class RootLock;
class SignalStop;

/// Hosts one agent on one scheduler: opens the root directory, lends the agent what it needs, and
/// takes it down in order. In a test it is made with a virtual clock and driven by the scheduler's
/// runUntilIdle(); pel-agentd calls run().
class Host {
public:
    /// @param clock outlives the host
    Host(HostConfig config, const Kiln::Clock& clock, std::unique_ptr<Kiln::YieldPolicy> policy);
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host();  ///< stops the agent if stop() has not

    /// Takes the root directory: creates it, locks it against a second agent, and listens for
    /// commands. Whatever a crashed host left is replaced. Empty, or what went wrong.
    std::string open();
    /// Creates the agent and runs its doInit(). open() has succeeded. Empty, or what went wrong.
    std::string start(AgentFactory factory);

    /// Has SIGTERM and SIGINT end run(). Before any other thread is started, see SignalStop.
    void stopOnSignals();
    /// Runs until stop() or a signal, then takes the agent down.
    void run();
    /// Takes the agent down: doStop(), doCleanup(), gone. Scheduler's thread; once is enough.
    void stop();

    const HostConfig& config() const { return config_; }
    const Vel::Ref<Kiln::TaskScheduler>& scheduler() const { return scheduler_; }
    const Vel::Ref<Hubdb::EntityManager>& entityManager() const { return entityManager_; }
    const Vel::Ref<CmdRequestDirSm>& commands() const { return commands_; }
    const Store::Reader& stateReader() const { return *state_; }
    const Store::Reader& configurationReader() const { return *configuration_; }
    /// When the host was made.
    Kiln::TimePoint started() const { return started_; }
    /// Null before start() and after stop().
    const Vel::Ref<AgentBase>& agent() const { return agent_; }

private:
    HostConfig config_;
    Vel::Ref<Kiln::TaskScheduler> scheduler_;
    Kiln::TimePoint started_;
    std::unique_ptr<RootLock> lock_;
    Vel::Ref<Store::Reader> state_;
    Vel::Ref<Store::Reader> configuration_;
    Vel::Ref<Mesa::EntityManager> sharedMemory_;
    Vel::Ref<Hubdb::EntityManager> entityManager_;
    Vel::Ref<CmdRequestDirSm> commands_;
    std::unique_ptr<HostCommands> hostCommands_;
    std::unique_ptr<CommandServer> server_;
    Vel::Ref<AgentBase> agent_;
    std::unique_ptr<SignalStop> signals_;
};

}  // namespace AgentHost

#include "platform/AgentHost/Host.h"

#include <exception>
#include <system_error>
#include <utility>

#include "platform/AgentHost/HostCommands.h"
#include "platform/AgentHost/RootLock.h"
#include "platform/AgentHost/SignalStop.h"
#include "platform/Blink/RingFile.h"
#include "platform/Blink/Trace.h"
#include "platform/Toggle/Toggle.h"
#include "platform/Vel/Assert.h"

BLINK_TRACE_HANDLE("AgentHost");

namespace AgentHost {
namespace {

Vel::Ref<Store::Reader> reader(const Vel::Ref<Kiln::TaskScheduler>& scheduler,
                               const std::filesystem::path& directory,
                               std::size_t mapBytes) {
    Store::Options options;
    options.directory = directory;
    options.mapBytes = mapBytes;
    return Vel::make<Store::Reader>(scheduler, options);
}

/// Runs a step of the agent's; what it throws ends as a text.
template <class Step>
std::string guarded(const char* name, Step step) {
    try {
        step();
        return {};
    } catch (const std::exception& error) {
        TRACE5("{} threw: {}", name, error.what());
        return std::string{name} + ": " + error.what();
    } catch (...) {
        TRACE5("{} threw what is no exception", name);
        return std::string{name} + ": threw what is no exception";
    }
}

}  // namespace

Host::Host(HostConfig config, const Kiln::Clock& clock, std::unique_ptr<Kiln::YieldPolicy> policy)
    : config_{std::move(config)},
      scheduler_{Vel::make<Kiln::TaskScheduler>(clock, std::move(policy))},
      started_{clock.now()},
      lock_{std::make_unique<RootLock>()},
      commands_{Vel::make<CmdRequestDirSm>()} {}

Host::~Host() {
    stop();
}

std::string Host::open() {
    if (std::string error = lock_->take(config_.root, HostConfig::kAgentLock); !error.empty()) {
        return error;
    }
    std::error_code ignored;  // the trace reports by itself that it has no directory
    std::filesystem::create_directories(config_.root / "trace", ignored);
    Blink::rootIs(config_.root);
    Toggle::directoryIs(config_.root / "toggles");
    // Listening before reading: who writes configuration and finds nobody listening knows that it
    // was written before it is first read. Requests wait until run().
    server_ = std::make_unique<CommandServer>(scheduler_, commands_);
    if (std::string error = server_->listen(config_.controlSocket()); !error.empty()) {
        return error;
    }
    state_ = reader(scheduler_, config_.stateDirectory(), config_.stateMapBytes);
    configuration_ =
        reader(scheduler_, config_.configurationDirectory(), Store::Options{}.mapBytes);
    sharedMemory_ = Vel::make<Mesa::EntityManager>(state_);
    entityManager_ = Vel::make<Hubdb::EntityManager>(
        config_.agentName, config_.cellId, scheduler_, state_, configuration_, sharedMemory_);
    hostCommands_ = std::make_unique<HostCommands>(*this);
    if (config_.gnmi.stampFile.empty()) { config_.gnmi.stampFile = config_.root / "gnmi-stamp"; }
    Gale::hostConfigIs(config_.gnmi);
    return {};
}

std::string Host::start(AgentFactory factory) {
    VEL_ASSERT(factory != nullptr && entityManager_);
    const std::string error = guarded(
        "agentFactory", [&] { agent_ = Vel::Ref<AgentBase>{factory(config_.agentName.c_str())}; });
    if (!error.empty()) { return error; }
    if (!agent_) { return "the plug-in made no agent"; }
    agent_->servicesIs({scheduler_, entityManager_, sharedMemory_, commands_, config_});
    return guarded("doInit", [this] { agent_->doInit(); });
}

void Host::stopOnSignals() {
    signals_ = std::make_unique<SignalStop>(scheduler_);
}

void Host::run() {
    scheduler_->run();
    stop();
}

void Host::stop() {
    if (!agent_) { return; }
    server_.reset();  // no command meets an agent that is going
    guarded("doStop", [this] { agent_->doStop(); });
    guarded("doCleanup", [this] { agent_->doCleanup(); });
    agent_ = nullptr;
}

}  // namespace AgentHost

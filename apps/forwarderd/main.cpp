#include <CLI/CLI.hpp>
#include <chrono>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "apps/forwarderd/KernelForwarder.h"
#include "apps/forwarderd/ScenarioOptions.h"
#include "apps/tree/ManualPage.h"
#include "forwarder/Scenario/ScenarioFeed.h"
#include "platform/AgentHost/Allocator.h"
#include "platform/AgentHost/HostConfig.h"
#include "platform/AgentHost/RootLock.h"
#include "platform/AgentHost/SignalStop.h"
#include "platform/AgentHost/StandardStreams.h"

// pel-forwarderd: publishes forwarding state into the store. Ends with 0 after SIGTERM or SIGINT, 1
// when it cannot start, 2 when the command line makes no sense.
namespace {

struct Arguments {
    AgentHost::HostConfig config;
    std::string source = "kernel";
    unsigned counterSeconds = Pel::Forwarder::kDefaultCounterSeconds;
    unsigned quietSeconds = Pel::Forwarder::Publish::kQuietTime.count();
    Pel::Forwarder::ScenarioOptions scenario;
};

int failed(std::string_view reason) {
    AgentHost::tell("pel-forwarderd", reason);
    return 1;
}

template <class Forwarder>
int runUntilStopped(Forwarder& forwarder, Kiln::TaskScheduler& scheduler) {
    if (const std::string error = forwarder.start(); !error.empty()) { return failed(error); }
    scheduler.run();
    return 0;
}

int forward(const Arguments& arguments) {
    std::string error;
    std::unique_ptr<Pel::Forwarder::ChangeSource> scenario;
    if (arguments.source == "scenario") {
        scenario = arguments.scenario.source(error);
        if (scenario == nullptr) { return failed(error); }
    }
    AgentHost::RootLock lock;
    error = lock.take(arguments.config.root, AgentHost::HostConfig::kForwarderLock);
    if (!error.empty()) { return failed(error); }
    Store::Options options;
    options.directory = arguments.config.stateDirectory();
    options.mapBytes = arguments.config.stateMapBytes;
    auto store = Store::Environment::open(options, Store::Access::write, error);
    if (store == nullptr) { return failed(error); }
    const Kiln::SteadyClock clock;
    const auto scheduler =
        Vel::make<Kiln::TaskScheduler>(clock, std::make_unique<Kiln::YieldByTime>());
    const AgentHost::SignalStop stop{scheduler};
    const unsigned cellId = arguments.config.cellId;
    if (scenario != nullptr) {
        const auto tell = [](const std::string& text) { (void)failed(text); };
        Pel::Forwarder::ScenarioFeed feed{
            scheduler, std::move(store), std::move(scenario), cellId, tell};
        return runUntilStopped(feed, *scheduler);
    }
    Pel::Forwarder::KernelForwarder::Options kernelOptions;
    kernelOptions.cellId = cellId;
    kernelOptions.counterInterval = std::chrono::seconds{arguments.counterSeconds};
    kernelOptions.quietTime = std::chrono::seconds{arguments.quietSeconds};
    Pel::Forwarder::KernelForwarder forwarder{scheduler, std::move(store), kernelOptions};
    return runUntilStopped(forwarder, *scheduler);
}

int run(int count, char** values) {
    Arguments arguments;
    CLI::App app{"Publishes forwarding state for the agent", "pel-forwarderd"};
    app.add_option("--root", arguments.config.root, "Directory of the stores")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_option("--source", arguments.source, "Where the state comes from")
        ->check(CLI::IsMember({"kernel", "scenario"}))
        ->capture_default_str();
    app.add_option("--scenario", arguments.scenario.file, "File that --source scenario plays")
        ->type_name("FILE");
    app.add_option("--generate",
                   arguments.scenario.generate,
                   "What --source scenario makes up: next-hops=N groups=M routes=R churn=C/s "
                   "seed=S counters=R");
    app.add_option("--cell", arguments.config.cellId, "Cell whose readiness is told")
        ->capture_default_str();
    app.add_option("--counter-interval",
                   arguments.counterSeconds,
                   "How often the kernel's counters are read, in seconds; 0: never")
        ->check(CLI::Range(0U, 86'400U))
        ->capture_default_str();
    app.add_option("--quiet-time",
                   arguments.quietSeconds,
                   "How long the kernel's route table has no change before it is said to have "
                   "quiesced, in seconds")
        ->check(CLI::Range(0U, 86'400U))
        ->capture_default_str();
    Pel::CommandTree::addManualOption(app);
    try {
        app.parse(count, values);
    } catch (const CLI::ParseError& error) { return app.exit(error) == 0 ? 0 : 2; }
    return forward(arguments);
}

}  // namespace

int main(int count, char** values) {
    AgentHost::standardStreamsAreTaken();
    AgentHost::allocatorWorksEvenly();
    try {
        return run(count, values);
    } catch (const std::exception& error) { return failed(error.what()); }
}

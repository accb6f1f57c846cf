#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "apps/tree/ManualPage.h"
#include "model/Registration.h"
#include "model/View/NativeView.h"
#include "model/View/OpenConfigView.h"
#include "platform/AgentHost/Allocator.h"
#include "platform/AgentHost/Host.h"
#include "platform/AgentHost/ListenAddress.h"
#include "platform/AgentHost/PluginLoader.h"
#include "platform/AgentHost/StandardStreams.h"

// pel-agentd: hosts one agent plug-in. Ends with 0 after SIGTERM or SIGINT, 1 when it cannot start,
// 2 when the command line makes no sense.
namespace {

struct Arguments {
    AgentHost::HostConfig config;
    std::string plugin;
    std::string listen = "127.0.0.1:9339";
};

std::string nameProblem(const std::string& text) {
    const bool good =
        !text.empty() && text.size() <= 255 && std::all_of(text.begin(), text.end(), [](char c) {
            return c > ' ' && c != '/' && c != '\x7f';
        });
    return good ? "" : "'" + text + "' is no name: 1 to 255 printable characters without '/'";
}

void options(CLI::App& app, Arguments& to) {
    app.add_option("--root", to.config.root, "Directory of stores, trace and control socket")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_option("--plugin", to.plugin, "The agent: a shared library")
        ->required()
        ->type_name("FILE");
    app.add_option("--listen", to.listen, "Where gNMI clients connect")
        ->check(AgentHost::ListenAddress::problem)
        ->capture_default_str();
    app.add_option("--name", to.config.agentName, "Name of the agent")
        ->check(nameProblem)
        ->capture_default_str();
    app.add_option("--cell", to.config.cellId, "Cell whose readiness counts")
        ->capture_default_str();
    app.add_option("--default-instance",
                   to.config.gnmi.defaultInstance,
                   "OpenConfig name of the default VRF")
        ->check(nameProblem)
        ->capture_default_str();
    app.add_flag("--clear-text-on-any-address",
                 to.config.gnmi.clearTextOnAnyAddress,
                 "Serve other addresses than loopback without encryption");
}

int failed(std::string_view reason) {
    AgentHost::tell("pel-agentd", reason);
    return 1;
}

int host(Arguments& arguments) {
    const auto listen = AgentHost::ListenAddress::parse(arguments.listen);
    arguments.config.gnmi.wire.address = listen->address;
    arguments.config.gnmi.wire.port = listen->port;
    if (const std::string problem = listen->unusable(); !problem.empty()) {
        AgentHost::tell("pel-agentd", problem + "; tried again until it can be had");
    }
    Pel::registerModelTypes();
    Pel::OcApi::registerOpenConfigView();
    Pel::OcApi::registerNativeView();
    std::string error;
    const AgentHost::AgentFactory factory = AgentHost::PluginLoader::load(arguments.plugin, error);
    if (factory == nullptr) { return failed(error); }
    const Kiln::SteadyClock clock;
    AgentHost::Host host{arguments.config, clock, std::make_unique<Kiln::YieldByTime>()};
    host.stopOnSignals();
    if (error = host.open(); !error.empty()) { return failed(error); }
    if (error = host.start(factory); !error.empty()) { return failed(error); }
    host.run();
    return 0;
}

int run(int count, char** values) {
    Arguments arguments;
    CLI::App app{"Hosts the agent that exports forwarding state", "pel-agentd"};
    options(app, arguments);
    Pel::CommandTree::addManualOption(app);
    try {
        app.parse(count, values);
    } catch (const CLI::ParseError& error) { return app.exit(error) == 0 ? 0 : 2; }
    return host(arguments);
}

}  // namespace

int main(int count, char** values) {
    AgentHost::standardStreamsAreTaken();
    AgentHost::allocatorWorksEvenly();
    try {
        return run(count, values);
    } catch (const std::exception& error) { return failed(error.what()); }
}

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

#include "model/Registration.h"
#include "model/View/OpenConfigView.h"
#include "platform/AgentHost/Host.h"
#include "platform/AgentHost/ListenAddress.h"
#include "platform/AgentHost/PluginLoader.h"

// pel-agentd: hosts one agent plug-in. Ends with 0 after SIGTERM or SIGINT, 1 when it cannot start,
// 2 when the command line makes no sense.
namespace {

struct Arguments {
    AgentHost::HostConfig config;
    std::string plugin;
    std::string listen = "127.0.0.1:9339";
};

void options(CLI::App& app, Arguments& to) {
    app.add_option("--root", to.config.root, "Directory of stores, trace and control socket")
        ->capture_default_str();
    app.add_option("--plugin", to.plugin, "The agent: a shared library")->required();
    app.add_option("--listen", to.listen, "Where gNMI clients connect")->capture_default_str();
    app.add_option("--name", to.config.agentName, "Name of the agent")->capture_default_str();
    app.add_option("--cell", to.config.cellId, "Cell whose readiness counts")
        ->capture_default_str();
    app.add_option("--default-instance",
                   to.config.gnmi.defaultInstance,
                   "OpenConfig name of the default VRF")
        ->capture_default_str();
    app.add_flag("--clear-text-on-any-address",
                 to.config.gnmi.clearTextOnAnyAddress,
                 "Serve other addresses than loopback without encryption");
}

int failed(const char* reason) {
    // Not fmt: this is also the last way out of main(), and must not throw.
    std::fprintf(stderr, "pel-agentd: %s\n", reason);
    return 1;
}

int host(Arguments& arguments) {
    const auto listen = AgentHost::ListenAddress::parse(arguments.listen);
    if (!listen) { return failed("--listen takes a numeric address and a port"); }
    arguments.config.gnmi.wire.address = listen->address;
    arguments.config.gnmi.wire.port = listen->port;
    if (const std::string problem = listen->unusable(); !problem.empty()) {
        fmt::print(stderr, "pel-agentd: {}; tried again until it is free\n", problem);
    }
    Pel::registerModelTypes();
    Pel::OcApi::registerOpenConfigView();
    std::string error;
    const AgentHost::AgentFactory factory = AgentHost::PluginLoader::load(arguments.plugin, error);
    if (factory == nullptr) { return failed(error.c_str()); }
    const Kiln::SteadyClock clock;
    AgentHost::Host host{arguments.config, clock, std::make_unique<Kiln::YieldByTime>()};
    host.stopOnSignals();
    if (error = host.open(); !error.empty()) { return failed(error.c_str()); }
    if (error = host.start(factory); !error.empty()) { return failed(error.c_str()); }
    host.run();
    return 0;
}

int run(int count, char** values) {
    Arguments arguments;
    CLI::App app{"Hosts the agent that exports forwarding state", "pel-agentd"};
    options(app, arguments);
    try {
        app.parse(count, values);
    } catch (const CLI::ParseError& error) { return app.exit(error) == 0 ? 0 : 2; }
    return host(arguments);
}

}  // namespace

int main(int count, char** values) {
    ::signal(SIGPIPE, SIG_IGN);
    try {
        return run(count, values);
    } catch (const std::exception& error) { return failed(error.what()); }
}

#include "apps/cli/ShowCommands.h"

#include <chrono>

#include "apps/cli/LiveOutput.h"
#include "platform/AgentHost/HostConfig.h"

namespace Pel::Cli {

ShowCommands::ShowCommands(CLI::App& app, int& code) : code_{code} {
    asked_.root = AgentHost::HostConfig{}.root;
    CLI::App& show = *app.add_subcommand("show", "Ask the running agent");
    show.require_subcommand(1);
    const Command commands[] = {
        {.name = "status",
         .help = "Who runs and feeds it, what is ready, what is exported, who subscribes",
         .asks = "status",
         .coloured = true},
        {"tasks", "The scheduler's tasks with their runs and times", "tasks"},
        {"fec-export",
         "The exported FECs with their next hops, or one of them",
         "showFecExport",
         "fec-id",
         "FECID",
         "Decimal; none: all"},
        {"next-hops",
         "The next hops of the exported AFT, or one of them with all it has",
         "showNextHops",
         "index",
         "INDEX",
         "Decimal; none: all"},
        {"groups",
         "The next-hop groups of the exported AFT, or one of them with its members",
         "showGroups",
         "id",
         "ID",
         "Decimal; none: all"},
        {"vrfs",
         "The VRFs with the prefixes in their route tables, or one of them",
         "showVrfs",
         "vrf",
         "VRF",
         "Name, or id; none: all"},
        {"route",
         "Where a destination leads: prefix, FEC, next hops, and what of it is not exported",
         "showRoute",
         "prefix",
         "PREFIX",
         "A prefix, as it is; an address: its longest match",
         true,
         false,
         "--vrf",
         "VRF",
         "In this VRF only"},
    };
    for (const Command& command : commands) { add(show, command); }
}

void ShowCommands::add(CLI::App& show, const Command& command) {
    CLI::App& app = *show.add_subcommand(command.name, command.help);
    CLI::Option* argument = nullptr;
    if (command.argument != nullptr) {
        argument = app.add_option(command.argument, argument_, command.argumentHelp)
                       ->required(command.required);
    }
    CLI::Option* option = nullptr;
    if (command.option != nullptr) {
        option = app.add_option(command.option, option_, command.optionHelp);
    }
    app.add_option("--root", asked_.root, "Directory of the agent and its stores")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_option("--timeout", timeoutMs_, "How long the agent may be silent, in ms")
        ->check(CLI::Range(1, 3'600'000))
        ->capture_default_str();
    app.add_flag("--json", asked_.json, "As JSON");
    app.callback([this, command, argument, option] {
        asked_.timeout = std::chrono::milliseconds{timeoutMs_};
        asked_.command = command.asks;
        if (argument != nullptr && argument->count() > 0) {
            asked_.parameters[command.parameter] = argument_;
        }
        if (option != nullptr && option->count() > 0) {
            asked_.parameters[command.optionParameter] = option_;
        }
        if (command.coloured && LiveOutput::coloured()) { asked_.parameters["colour"] = "yes"; }
        code_ = AskCommand::run(asked_);
    });
}

}  // namespace Pel::Cli

#include "apps/cli/ShowCommands.h"

#include <chrono>

#include "platform/AgentHost/HostConfig.h"

namespace Pel::Cli {

ShowCommands::ShowCommands(CLI::App& app, int& code) : code_{code} {
    asked_.root = AgentHost::HostConfig{}.root;
    CLI::App& show = *app.add_subcommand("show", "Ask the running agent");
    show.require_subcommand(1);
    const Command commands[] = {
        {"status", "Who runs, where clients connect, how far the stores are read", "status"},
        {"tasks", "The scheduler's tasks with their runs and times", "tasks"},
        {"fec-export",
         "The exported FECs with their next hops, or one of them",
         "showFecExport",
         "fec-id",
         "FECID",
         "Decimal; none: all"},
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
    app.add_option("--root", asked_.root, "Directory of the agent and its stores")
        ->capture_default_str();
    app.add_option("--timeout", timeoutMs_, "How long the agent may be silent, in ms")
        ->check(CLI::Range(1, 3'600'000))
        ->capture_default_str();
    app.add_flag("--json", asked_.json, "As JSON");
    app.callback([this, command, argument] {
        asked_.timeout = std::chrono::milliseconds{timeoutMs_};
        asked_.command = command.asks;
        if (argument != nullptr && argument->count() > 0) {
            asked_.parameters[command.parameter] = argument_;
        }
        code_ = AskCommand::run(asked_);
    });
}

}  // namespace Pel::Cli

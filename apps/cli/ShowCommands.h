#pragma once

#include <CLI/CLI.hpp>

#include <string>

#include "apps/cli/AskCommand.h"

namespace Pel::Cli {

/// The subcommands of `pel show`. The agent does the work; here stands what each of them takes.
class ShowCommands {
public:
    /// Adds them to a command line; the one that is called leaves its ExitCode in `code`.
    ShowCommands(CLI::App& app, int& code);

private:
    struct Command {
        const char* name;
        const char* help;
        const char* asks;  ///< the agent's name for it
        const char* argument = nullptr;
        const char* parameter = nullptr;  ///< the agent's name for the argument
        const char* argumentHelp = nullptr;
        bool required = false;
        bool coloured = false;  ///< on a terminal the agent is asked for colours
        const char* option = nullptr;
        const char* optionParameter = nullptr;
        const char* optionHelp = nullptr;
    };
    void add(CLI::App& show, const Command& command);

    AskCommand::Options asked_;
    std::string argument_;
    std::string option_;
    int timeoutMs_ = 5000;
    int& code_;
};

}  // namespace Pel::Cli

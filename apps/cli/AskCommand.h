#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <string>

namespace Pel::Cli {

/// Asks the running agent, and prints its answer as it comes. Holds one piece of it at a time, however
/// slowly its own reader takes it.
class AskCommand {
public:
    struct Options {
        std::filesystem::path root;
        std::chrono::milliseconds timeout{};  ///< of the agent's silence
        std::string command;                  ///< as the agent knows it
        std::map<std::string, std::string> parameters;
        bool json = false;
    };
    /// An ExitCode.
    static int run(const Options& options);
};

}  // namespace Pel::Cli

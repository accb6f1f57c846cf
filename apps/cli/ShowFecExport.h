#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

namespace Pel::Cli {

/// `pel show fec-export`: prints what the agent exports, as it comes. Holds one piece of it at a
/// time, however slowly its own reader takes it.
class ShowFecExport {
public:
    struct Options {
        std::filesystem::path root;
        std::chrono::milliseconds timeout{};  ///< of the agent's silence
        std::optional<std::string> fecId;     ///< none: all
        bool json = false;
    };
    /// An ExitCode.
    static int run(const Options& options);
};

}  // namespace Pel::Cli

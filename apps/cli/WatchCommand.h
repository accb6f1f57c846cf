#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace Pel::Cli {

/// `pel watch`: what a gNMI client is shown, as lines: "<path> <value>", "delete <path>", and
/// "-- synced --" after the initial set.
class WatchCommand {
public:
    struct Options {
        std::string server;
        std::vector<std::string> paths;  ///< as people write them; none: everything
        bool once = false;
        std::chrono::seconds timeout{60};  ///< of the whole call, with `once`
    };
    /// An ExitCode.
    static int run(const Options& options);
};

}  // namespace Pel::Cli

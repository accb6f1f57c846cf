#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace Pel::Cli {

/// `pel watch`: what a gNMI client is shown, as lines: "<path> <value>", "delete <path>", and
/// "-- synced --" after the initial set; or how fast its counters grow. Each of it also as JSON.
class WatchCommand {
public:
    struct Options {
        std::string server;
        std::vector<std::string> paths;  ///< as people write them; none: everything
        bool once = false;
        std::chrono::seconds timeout{60};  ///< of the whole call, with `once`
        bool json = false;                 ///< an object a line
        /// Counters and their rates at the end of each interval of this length, in place of what
        /// comes.
        std::optional<std::chrono::milliseconds> rates;
        /// Each value once an interval of this length; zero: of the shortest that the server has.
        /// Nothing: when it changes.
        std::optional<std::chrono::seconds> sample;
    };
    /// An ExitCode. Ended by its user or for want of a reader it is done.
    static int run(const Options& options);
};

}  // namespace Pel::Cli

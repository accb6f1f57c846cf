#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

namespace Pel::Cli {

/// `pel trace [FILE...]`: ring files as text or JSON, merged by time, oldest message first.
class TraceCommand {
public:
    struct Options {
        std::vector<std::filesystem::path> files;  ///< none: what lies under the root
        std::filesystem::path root;
        bool all = false;  ///< all of it, not only what is being written or is the youngest
        bool follow = false;
        bool json = false;   ///< an object a line
        std::string handle;  ///< empty: all
        int level = 9;       ///< messages up to this level
        /// Messages from this time on, in nanoseconds since 1970.
        std::int64_t since = std::numeric_limits<std::int64_t>::min();
    };
    /// An ExitCode. With `follow` it goes on until its user ends it or nobody reads its output any
    /// more, which is kDone.
    static int run(const Options& options);
};

}  // namespace Pel::Cli

#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Pel::Cli {

/// `pel trace [FILE...]`: ring files as text, merged by time, oldest message first.
class TraceCommand {
public:
    struct Options {
        std::vector<std::filesystem::path> files;  ///< none: what lies under the root
        std::filesystem::path root;
        bool all = false;  ///< all of it, not only what is being written or is the youngest
        bool follow = false;
        std::string handle;  ///< empty: all
        int level = 9;       ///< messages up to this level
    };
    /// An ExitCode. With `follow` it ends when nobody reads its output any more.
    static int run(const Options& options);
};

}  // namespace Pel::Cli

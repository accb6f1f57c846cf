#pragma once

#include <filesystem>
#include <string>

namespace Pel::Cli {

/// `pel trace FILE`: a ring file as text, oldest message first.
class TraceCommand {
public:
    struct Options {
        std::filesystem::path file;
        bool follow = false;
        std::string handle;  ///< empty: all
        int level = 9;       ///< messages up to this level
    };
    /// An ExitCode. With `follow` it ends when nobody reads its output any more.
    static int run(const Options& options);
};

}  // namespace Pel::Cli

#pragma once

#include <string>
#include <vector>

namespace Pel::Cli {

/// `pel scenario check FILE...`: whether a forwarder would take each of the files. All that is wrong with them goes to
/// standard error as "file:line:column: what was expected", or with `json` into the answer on standard output; nothing
/// else happens.
class ScenarioCommand {
public:
    /// An ExitCode: done when all are good.
    static int check(const std::vector<std::string>& files, bool json);
};

}  // namespace Pel::Cli

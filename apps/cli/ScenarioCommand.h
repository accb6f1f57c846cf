#pragma once

#include <string>

namespace Pel::Cli {

/// `pel scenario check FILE`: whether a forwarder would take the file. All that is wrong with it goes to standard error as
/// "file:line:column: what was expected"; nothing else happens.
class ScenarioCommand {
public:
    /// An ExitCode.
    static int check(const std::string& file);
};

}  // namespace Pel::Cli

#include "apps/cli/ScenarioCommand.h"

#include <fmt/format.h>

#include <cstdio>
#include <vector>

#include "apps/cli/ExitCode.h"
#include "forwarder/Scenario/Scenario.h"

namespace Pel::Cli {

int ScenarioCommand::check(const std::string& file) {
    std::vector<std::string> problems;
    const auto scenario = Forwarder::loadScenario(file, problems);
    for (const std::string& problem : problems) { fmt::print(stderr, "{}\n", problem); }
    if (!scenario) { return kFailed; }
    fmt::print("{}: {}\n", file, scenario->summary());
    return kDone;
}

}  // namespace Pel::Cli

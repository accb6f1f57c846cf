#include "apps/cli/ScenarioCommand.h"

#include <fmt/format.h>

#include <cstdio>
#include <vector>

#include "apps/cli/ExitCode.h"
#include "forwarder/Scenario/Scenario.h"

namespace Pel::Cli {

int ScenarioCommand::check(const std::vector<std::string>& files) {
    int code = kDone;
    for (const std::string& file : files) {
        std::vector<std::string> problems;
        const auto scenario = Forwarder::loadScenario(file, problems);
        for (const std::string& line : problems) { std::fprintf(stderr, "%s\n", line.c_str()); }
        if (scenario) {
            fmt::print("{}: {}\n", file, scenario->summary());
        } else {
            code = kFailed;
        }
    }
    return code;
}

}  // namespace Pel::Cli

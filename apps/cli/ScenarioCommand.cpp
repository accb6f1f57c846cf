#include "apps/cli/ScenarioCommand.h"

#include <fmt/format.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <vector>

#include "apps/cli/ExitCode.h"
#include "forwarder/Scenario/Scenario.h"

namespace Pel::Cli {
namespace {

using Json = nlohmann::ordered_json;

void tellText(const std::string& file,
              const std::string& summary,
              const std::vector<std::string>& problems) {
    for (const std::string& line : problems) { std::fprintf(stderr, "%s\n", line.c_str()); }
    if (!summary.empty()) { fmt::print("{}: {}\n", file, summary); }
}

}  // namespace

int ScenarioCommand::check(const std::vector<std::string>& files, bool json) {
    int code = kDone;
    Json all = Json::array();
    for (const std::string& file : files) {
        std::vector<std::string> problems;
        const auto scenario = Forwarder::loadScenario(file, problems);
        const std::string summary = scenario ? scenario->summary() : "";
        if (!scenario) { code = kFailed; }
        if (json) {
            all.push_back({{"file", file},
                           {"good", scenario.has_value()},
                           {"summary", summary},
                           {"problems", problems}});
        } else {
            tellText(file, summary, problems);
        }
    }
    if (json) {
        const Json answer{{"files", all}};
        fmt::print("{}\n", answer.dump(-1, ' ', false, Json::error_handler_t::replace));
    }
    return code;
}

}  // namespace Pel::Cli

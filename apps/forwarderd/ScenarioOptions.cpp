#include "apps/forwarderd/ScenarioOptions.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <utility>
#include <vector>

#include "forwarder/Scenario/FileSource.h"
#include "forwarder/Scenario/Generator.h"

namespace Pel::Forwarder {

std::unique_ptr<ChangeSource> ScenarioOptions::source(std::string& error) const {
    if (file.empty() == generate.empty()) {
        error = "--source scenario needs one of --scenario FILE and --generate \"next-hops=N ...\"";
        return nullptr;
    }
    if (!generate.empty()) {
        const auto options = GeneratorOptions::parse(generate, error);
        if (!options) { error = "--generate: " + error; }
        return options ? std::make_unique<Generator>(*options) : nullptr;
    }
    std::vector<std::string> problems;
    auto scenario = loadScenario(file, problems);
    error = fmt::format("{}", fmt::join(problems, "\n"));
    return scenario ? std::make_unique<FileSource>(std::move(*scenario)) : nullptr;
}

}  // namespace Pel::Forwarder

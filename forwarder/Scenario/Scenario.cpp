#include "forwarder/Scenario/Scenario.h"

#include <fstream>
#include <string>
#include <utility>
#include <variant>

#include "forwarder/Scenario/FieldReader.h"
#include "forwarder/Scenario/ScenarioReader.h"
#include "forwarder/Scenario/YamlTree.h"

namespace Pel::Forwarder {

namespace {

template <class Item>
std::string counted(const Changes& changes, const char* what) {
    std::size_t count = 0;
    for (const Change& change : changes) { count += std::holds_alternative<Item>(change) ? 1 : 0; }
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

/// `invalid: allow` decides how all else is read.
bool allowsInvalid(const YamlNode& root, Problems& problems) {
    const ValueReader values{problems};
    for (std::size_t i = 0; root.kind == YamlNode::Kind::map && i + 1 < root.items.size(); i += 2) {
        const YamlNode& value = root.items[i + 1];
        if (root.items[i].text != "invalid") { continue; }
        if (value.text == "allow" || value.text == "refuse") { return value.text == "allow"; }
        values.expected(value, "allow or refuse");
    }
    return false;
}

}  // namespace

std::string Scenario::summary() const {
    return counted<VrfItem>(initial, "VRF") + ", " + counted<NextHopItem>(initial, "next hop") +
           ", " + counted<FecItem>(initial, "FEC") + ", " + counted<RouteItem>(initial, "route") +
           ", " + std::to_string(firstRound.size()) + (firstRound.size() == 1 ? " step" : " steps");
}

std::optional<Scenario> parseScenario(std::string_view text, Problems& problems) {
    const auto root = parseYaml(text, problems);
    if (!root) { return std::nullopt; }
    ScenarioReader reader{*root, problems, allowsInvalid(*root, problems)};
    Scenario scenario = reader.read();
    return problems.empty() ? std::optional{std::move(scenario)} : std::nullopt;
}

std::optional<Scenario> loadScenario(const std::string& file, std::vector<std::string>& lines) {
    Problems problems{file};
    std::optional<Scenario> scenario;
    std::ifstream stream{file, std::ios::binary};
    std::string text;
    // One byte more than is accepted is enough to refuse a file that is larger, or has no end.
    if (stream) {
        text.resize(kMaxYamlBytes + 1);
        stream.read(text.data(), static_cast<std::streamsize>(text.size()));
        text.resize(static_cast<std::size_t>(stream.gcount()));
    }
    if (!stream.is_open() || stream.bad() || (text.empty() && !stream.eof())) {
        problems.add({}, "cannot be read");
    } else {
        scenario = parseScenario(text, problems);
    }
    lines = problems.lines();
    return scenario;
}

}  // namespace Pel::Forwarder

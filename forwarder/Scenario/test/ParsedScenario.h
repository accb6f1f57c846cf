#pragma once

#include <optional>
#include <string>
#include <vector>

#include "forwarder/Scenario/Scenario.h"

namespace Pel::Forwarder {

/// What became of a text, as the file f.yaml.
struct Parsed {
    std::optional<Scenario> scenario;
    std::vector<std::string> problems;
};

inline Parsed parse(const std::string& text) {
    Problems problems{"f.yaml"};
    Parsed parsed{parseScenario(text, problems), {}};
    parsed.problems = problems.lines();
    return parsed;
}

/// A scenario to append to. The last lines are routes.
inline const std::string kBase =
    "scenario: 1\n"
    "interfaces: [{name: e1}, {name: e1.7, parent: e1, subinterface: 7}]\n"
    "vrfs: [{name: red, id: 1001}]\n"                      // line 3
    "nextHops:\n"                                          // line 4
    "  - {name: a, interface: e1, address: 10.0.0.1}\n"    // line 5
    "  - {name: b, interface: e1.7, address: 10.0.0.2}\n"  // line 6
    "fecs:\n"                                              // line 7
    "  - {id: 41, members: [a, {nextHop: b, weight: 3}]}\n"
    "routes:\n"                                        // line 9
    "  - {prefix: 10.1.0.0/16, fec: 41}\n"             // line 10
    "  - {vrf: red, prefix: 10.2.0.0/16, fec: 41}\n";  // line 11

}  // namespace Pel::Forwarder

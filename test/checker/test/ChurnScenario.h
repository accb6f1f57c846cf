#pragma once

#include <cstddef>
#include <set>
#include <string>

namespace Checker {

/// A scenario with churn in which references matter: chains of next hops, a group over them and routes over that come and
/// go as a whole, each with ids of its own, while what stays changes. Routes move from a group to a new one before the old one
/// goes with its next hop; in the middle hundreds of entries go at once, and later come back. The same text each time.
struct ChurnScenario {
    /// Added by the last step of all; whoever has it has everything.
    static constexpr const char* kMarker = "203.0.113.77/32";

    /// Next hops, groups and prefixes at the beginning.
    static std::size_t entriesAtBeginning();
    /// Paths of those of them that never go.
    static std::set<std::string> standing();
    /// The state at the beginning only.
    static std::string beginning();
    /// With `steps` steps of about 20 changes each.
    static std::string withChurn(unsigned steps);
};

}  // namespace Checker

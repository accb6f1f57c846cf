#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "forwarder/Scenario/Change.h"
#include "forwarder/Scenario/Problems.h"
#include "platform/Kiln/Clock.h"

namespace Pel::Forwarder {

/// A scenario file, understood and checked as a whole: nothing in it can fail any more. Everything is in the order in
/// which it has to be published.
struct Scenario {
    struct Step {
        Kiln::Duration at{};  ///< from the beginning of its round
        Changes changes;
    };

    Changes initial;
    Changes ready;  ///< after it
    std::vector<Step> firstRound;
    std::vector<Step> laterRounds;            ///< what the same steps change when they come again
    Kiln::Duration every{};                   ///< from one round to the next
    std::optional<std::uint64_t> rounds = 1;  ///< nullopt: without end
    std::uint64_t firstFreeIndex = 1;         ///< above every number that the file gives

    /// "2 VRFs, 3 next hops, ...".
    std::string summary() const;
};

/// The scenario that `text` describes; nullopt when anything is wrong with it, and then `problems` has it all.
std::optional<Scenario> parseScenario(std::string_view text, Problems& problems);
/// The same of a file; "-" is not special. `lines` gets the problems, as "file:line:column: text".
std::optional<Scenario> loadScenario(const std::string& file, std::vector<std::string>& lines);

}  // namespace Pel::Forwarder

#pragma once

#include <ostream>
#include <string_view>
#include <vector>

#include "test/checker/test/Stream.h"

namespace Checker {

/// One way in which a server could be wrong, seeded into a stream that is right.
struct Fault {
    std::string_view name;
    Rule rule;  ///< the one rule that it breaks
    /// False when the stream has no place where this fault breaks that rule alone.
    bool (*seed)(Stream& stream);
};

const std::vector<Fault>& faults();

/// Named in the test's output.
inline void PrintTo(const Fault& fault, std::ostream* to) {
    *to << fault.name;
}

}  // namespace Checker

#pragma once

#include <cstdint>
#include <filesystem>

#include "test/checker/LagHistogram.h"

namespace Soak {

/// From the moment at which the generator's plan had a change due to its arrival, read off a recording: a changed next
/// hop bears the number of its change in its MAC, and changes are due at even distances. The plan's beginning is not in
/// the stream, so the fastest of all is taken as 0; what comes in addition for all alike does not show. A generator that
/// falls behind its plan drops changes and moves the plan, which shows as lag.
/// @param churn changes a second
Checker::LagHistogram dueLag(const std::filesystem::path& recording,
                             std::uint64_t churn,
                             std::int64_t from,
                             std::int64_t until);

}  // namespace Soak

#pragma once

#include <string>

#include "platform/Kiln/Clock.h"

namespace AgentHost {

/// A time span for people, in its two largest units: "12 s", "3 min 5 s", "2 h 10 min", "4 d 3 h".
/// Whole seconds, rounded down; below zero is "0 s".
std::string ageText(Kiln::Duration age);

/// The same in whole seconds.
std::uint64_t ageSeconds(Kiln::Duration age);

}  // namespace AgentHost

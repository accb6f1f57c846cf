#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace Pel::Cli {

/// "30s", "10m", "2h" or "1d", ten years at most; nullopt when it is none.
std::optional<std::chrono::seconds> timeSpan(std::string_view text);

/// What people write after --since: an age ("30s", "10m", "2h", "1d"), or a time in UTC as `pel trace`
/// prints it ("2026-01-31T08:15:00.25Z"; fraction and Z may be left out). Nanoseconds since 1970;
/// nullopt when it is neither. `now` is what an age is taken from.
std::optional<std::int64_t> sinceTime(std::string_view text,
                                      std::chrono::system_clock::time_point now);

}  // namespace Pel::Cli

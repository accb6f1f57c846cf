#include "platform/AgentHost/AgeText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace AgentHost {
namespace {

struct Unit {
    const char* name;
    std::uint64_t seconds;
};
constexpr std::array<Unit, 4> kUnits{{{"d", 86'400}, {"h", 3600}, {"min", 60}, {"s", 1}}};

}  // namespace

std::uint64_t ageSeconds(Kiln::Duration age) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(age).count();
    return static_cast<std::uint64_t>(std::max<decltype(seconds)>(seconds, 0));
}

std::string ageText(Kiln::Duration age) {
    const std::uint64_t seconds = ageSeconds(age);
    for (std::size_t i = 0; i + 1 < kUnits.size(); ++i) {
        const Unit& unit = kUnits[i];
        const Unit& next = kUnits[i + 1];
        if (seconds < unit.seconds) { continue; }
        const std::uint64_t rest = seconds % unit.seconds / next.seconds;
        return fmt::format("{} {} {} {}", seconds / unit.seconds, unit.name, rest, next.name);
    }
    return fmt::format("{} s", seconds);
}

}  // namespace AgentHost

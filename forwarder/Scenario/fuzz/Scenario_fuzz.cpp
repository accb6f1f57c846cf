#include <cstddef>
#include <cstdint>
#include <string_view>

#include "forwarder/Scenario/GeneratorOptions.h"
#include "forwarder/Scenario/Scenario.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): bytes as text
    const std::string_view text{reinterpret_cast<const char*>(data), size};
    Pel::Forwarder::Problems problems{"f"};
    const auto scenario = Pel::Forwarder::parseScenario(text, problems);
    if (scenario.has_value() != problems.lines().empty()) { __builtin_trap(); }
    std::string error;
    if (Pel::Forwarder::GeneratorOptions::parse(text, error).has_value() != error.empty()) {
        __builtin_trap();
    }
    return 0;
}

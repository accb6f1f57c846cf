#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Pel::Forwarder {

/// How much is generated.
struct GeneratorOptions {
    static constexpr std::uint64_t kMaxElements = 10'000'000;  ///< of each kind
    static constexpr std::uint64_t kMaxChurn = 1'000'000;
    static constexpr std::uint64_t kMaxRate = 1'000'000'000;

    std::uint64_t nextHops = 0;
    std::uint64_t groups = 0;
    std::uint64_t routes = 0;
    std::uint64_t churn = 0;  ///< changes a second
    std::uint64_t seed = 1;
    std::uint64_t chains = 0;  ///< that come and go as a whole: two next hops, a group, a route

    std::uint64_t counters = 0;        ///< packets a second of the slowest next hop; 0: no counters
    std::uint64_t counterChanges = 0;  ///< counters that change a second; 0: each every ten seconds

    /// "next-hops=1000 groups=250 routes=2000 churn=100/s chains=50 seed=7 counters=10 counter-changes=100/s", in any order; what is not given is none (the seed 1).
    /// Nullopt, and why, for a text that is something else.
    static std::optional<GeneratorOptions> parse(std::string_view text, std::string& error);
    bool operator==(const GeneratorOptions&) const = default;
};

}  // namespace Pel::Forwarder

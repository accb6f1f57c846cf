#pragma once

#include <cstdint>
#include <filesystem>

namespace Bench {

/// Publishes `nextHops` next hops, a quarter as many groups of four, their readiness, and an enabled
/// export, below a root directory, as the forwarder and `pel config` would.
void fillStore(const std::filesystem::path& root, std::uint64_t nextHops);

/// Entries of the OpenConfig view that such a store gives: next hops and groups.
constexpr std::uint64_t entriesOf(std::uint64_t nextHops) {
    return nextHops + nextHops / 4;
}

}  // namespace Bench

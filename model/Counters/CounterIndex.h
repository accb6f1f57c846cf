#pragma once

#include <cstdint>

#include "model/Net/Id.h"
#include "model/Tunnel/TunnelId.h"

namespace FlexCounters {

/// Names a hardware counter. Of a tunnel: the high word its identifier, the low word 0. Of an entry
/// of a group: one number of 48 bits, its high word below those of IP-in-IP tunnels. 0 is none.
using CounterIndex = Nexo::Id<struct CounterIndexTag>;

constexpr std::uint32_t lowWord(CounterIndex index) {
    return static_cast<std::uint32_t>(index.value());
}
constexpr std::uint32_t highWord(CounterIndex index) {
    return static_cast<std::uint32_t>(index.value() >> 32U);
}
constexpr CounterIndex makeCounterIndex(std::uint32_t highWord, std::uint32_t lowWord) {
    return CounterIndex{static_cast<std::uint64_t>(highWord) << 32U | lowWord};
}
constexpr CounterIndex makeCounterIndex(Tunnel::TunnelTable::TunnelId tunnelId) {
    return makeCounterIndex(tunnelId.value(), 0);
}

}  // namespace FlexCounters

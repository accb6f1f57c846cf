#pragma once

#include <compare>
#include <cstdint>

#include "platform/Vel/Errors.h"

namespace Tunnel::TunnelTable {

/// Identifies a tunnel: 0 to 0x3FFFF, of which the bits from 12 up are its type and the low 12 its
/// number among those of the type; 0 is none.
class TunnelId {
public:
    static constexpr std::uint32_t minValue = 0;
    static constexpr std::uint32_t maxValue = 0x3'FFFF;

    constexpr TunnelId() = default;
    /// Raises a Vel::RangeError beyond maxValue.
    constexpr explicit TunnelId(std::uint32_t value) : value_{value} {
        if (value > maxValue) { raise(); }
    }
    /// Of the number's low 12 bits.
    static constexpr TunnelId ofIpInIp(std::uint64_t number) {
        return TunnelId{kIpInIp << kTypeShift | (static_cast<std::uint32_t>(number) & kNumberMask)};
    }
    constexpr std::uint32_t value() const { return value_; }
    constexpr bool isIpInIp() const { return value_ >> kTypeShift == kIpInIp; }
    constexpr std::uint32_t numberOfType() const { return value_ & kNumberMask; }
    friend constexpr auto operator<=>(const TunnelId&, const TunnelId&) = default;

private:
    static constexpr std::uint32_t kTypeShift = 12;
    static constexpr std::uint32_t kNumberMask = 0xFFF;
    static constexpr std::uint32_t kIpInIp = 24;

    [[noreturn]] static void raise() {
        throw Vel::RangeError{
            "Tunnel::TunnelTable::TunnelId::value < Tunnel::TunnelTable::TunnelId::minValue or > "
            "Tunnel::TunnelTable::TunnelId::maxValue not allowed"};
    }

    std::uint32_t value_ = 0;
};

}  // namespace Tunnel::TunnelTable

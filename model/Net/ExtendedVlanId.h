#pragma once

#include <compare>
#include <cstdint>

#include "platform/Vel/Errors.h"

namespace Nexo {

/// A VLAN of the extended range, 0 to 16383. Anything beyond raises a RangeError.
class ExtendedVlanId {
public:
    static constexpr std::uint32_t kMax = 0x3fff;
    ExtendedVlanId() = default;
    explicit ExtendedVlanId(std::uint32_t value) : value_{static_cast<std::uint16_t>(value)} {
        if (value > kMax) {
            throw Vel::RangeError{
                "Nexo::ExtendedVlanId::value > Nexo::ExtendedVlanId::max not allowed"};
        }
    }
    std::uint32_t value() const { return value_; }
    friend auto operator<=>(const ExtendedVlanId&, const ExtendedVlanId&) = default;

private:
    std::uint16_t value_ = 0;
};

}  // namespace Nexo

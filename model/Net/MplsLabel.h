#pragma once

#include <compare>
#include <cstdint>

#include "platform/Vel/Errors.h"

namespace Nexo {

/// An MPLS label, 20 bits.
class MplsLabel {
public:
    static constexpr std::uint32_t kMax = (1U << 20U) - 1;
    MplsLabel() = default;
    explicit MplsLabel(std::uint32_t value) : value_{value} {
        if (value > kMax) {
            throw Vel::RangeError{"Nexo::MplsLabel::value > Nexo::MplsLabel::max not allowed"};
        }
    }
    std::uint32_t value() const { return value_; }
    friend auto operator<=>(const MplsLabel&, const MplsLabel&) = default;

private:
    std::uint32_t value_ = 0;
};

}  // namespace Nexo

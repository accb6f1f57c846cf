#pragma once

#include <compare>
#include <cstdint>

#include "platform/Vel/Errors.h"

namespace Nexo {

/// A position in a label stack: 0 (top) to 13, or null (14). Anything beyond raises a RangeError.
class MplsStackEntryIndex {
public:
    static constexpr std::uint32_t kMin = 0;
    static constexpr std::uint32_t kNullValue = 14;
    MplsStackEntryIndex() = default;
    explicit MplsStackEntryIndex(std::uint32_t value) : value_{static_cast<std::uint8_t>(value)} {
        if (value > kNullValue) { raise(); }
    }
    std::uint32_t value() const { return value_; }
    bool isNull() const { return value_ == kNullValue; }
    friend auto operator<=>(const MplsStackEntryIndex&, const MplsStackEntryIndex&) = default;
    [[noreturn]] static void raise() {
        throw Vel::RangeError{
            "Nexo::MplsStackEntryIndex::value < Nexo::MplsStackEntryIndex::min or > "
            "Nexo::MplsStackEntryIndex::nullValue not allowed"};
    }

private:
    std::uint8_t value_ = kNullValue;
};

}  // namespace Nexo

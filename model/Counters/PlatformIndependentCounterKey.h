#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <utility>

namespace Routing::Hardware {

/// A hardware counter by index and type, whatever the hardware ("pick"). Total and reversible: each
/// pair is a key of its own.
class PlatformIndependentCounterKey {
public:
    PlatformIndependentCounterKey() = default;
    static PlatformIndependentCounterKey indexAndTypeToPick(std::uint64_t counterIndex,
                                                            std::uint8_t counterType) {
        PlatformIndependentCounterKey pick;
        pick.counterIndex_ = counterIndex;
        pick.counterType_ = counterType;
        return pick;
    }
    std::uint64_t counterIndex() const { return counterIndex_; }
    std::uint8_t counterType() const { return counterType_; }
    /// "2:17", type first.
    std::string stringValue() const {
        return std::to_string(counterType_) + ":" + std::to_string(counterIndex_);
    }
    friend auto operator<=>(const PlatformIndependentCounterKey&,
                            const PlatformIndependentCounterKey&) = default;

private:
    std::uint64_t counterIndex_ = 0;
    std::uint8_t counterType_ = 0;
};

}  // namespace Routing::Hardware

#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "platform/Kiln/Clock.h"

namespace Pel::Forwarder {

/// When the things of a sequence are due that has so many a second, the first 1/rate after the beginning. What could not be
/// made within its second is not made up for.
class Pace {
public:
    /// 0: never.
    explicit Pace(std::uint64_t perSecond) : rate_{perSecond} {}

    std::optional<Kiln::Duration> nextDue() const {
        return rate_ == 0 ? std::nullopt : std::optional{timeOf(taken_ + 1)};
    }
    bool due(Kiln::Duration now) const { return rate_ != 0 && timeOf(taken_ + 1) <= now; }
    /// The number of the next one, from 0.
    std::uint64_t take() { return taken_++; }
    void dropLate(Kiln::Duration now) {
        if (rate_ == 0) { return; }
        const Kiln::Duration late = now - timeOf(taken_ + 1);
        if (late > kSecond) { skipped_ += late - kSecond; }
    }

private:
    static constexpr Kiln::Duration kSecond = std::chrono::seconds{1};
    Kiln::Duration timeOf(std::uint64_t number) const {
        return skipped_ + kSecond * static_cast<std::int64_t>(number / rate_) +
               kSecond * static_cast<std::int64_t>(number % rate_) /
                   static_cast<std::int64_t>(rate_);
    }

    std::uint64_t rate_;
    std::uint64_t taken_ = 0;
    Kiln::Duration skipped_{};
};

}  // namespace Pel::Forwarder

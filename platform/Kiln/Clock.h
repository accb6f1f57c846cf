#pragma once

#include <chrono>
#include <cstdint>

namespace Kiln {

using Duration = std::chrono::nanoseconds;
using TimePoint = std::chrono::time_point<std::chrono::steady_clock, Duration>;

/// Source of time for everything that waits or stamps. Injected, so that a test drives it.
/// now() and wallNanoseconds() may be called from any thread.
class Clock {
public:
    Clock() = default;
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;
    virtual ~Clock() = default;
    /// Monotonic time; only differences mean anything.
    virtual TimePoint now() const = 0;
    /// Wall time in nanoseconds since the Unix epoch; may step.
    virtual std::int64_t wallNanoseconds() const = 0;
};

/// The machine's clocks.
class SteadyClock final : public Clock {
public:
    TimePoint now() const override { return std::chrono::steady_clock::now(); }
    std::int64_t wallNanoseconds() const override {
        return std::chrono::duration_cast<Duration>(
                   std::chrono::system_clock::now().time_since_epoch())
            .count();
    }
};

/// A clock that stands still until a test moves it. Single-threaded use.
class VirtualClock final : public Clock {
public:
    TimePoint now() const override { return now_; }
    std::int64_t wallNanoseconds() const override {
        return kEpoch + std::chrono::duration_cast<Duration>(now_.time_since_epoch()).count();
    }
    void advance(Duration by) { now_ += by; }

private:
    static constexpr std::int64_t kEpoch = 1'700'000'000'000'000'000;
    TimePoint now_{};
};

}  // namespace Kiln

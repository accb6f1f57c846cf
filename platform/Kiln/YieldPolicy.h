#pragma once

#include "platform/Kiln/Clock.h"

namespace Kiln {

/// Decides when a running task's slice is over. Asked after each element of a walk, so it must be
/// cheap. An object, so that every walk is tested under "never" and "always" too.
class YieldPolicy {
public:
    YieldPolicy() = default;
    YieldPolicy(const YieldPolicy&) = delete;
    YieldPolicy& operator=(const YieldPolicy&) = delete;
    virtual ~YieldPolicy() = default;
    virtual void sliceBegun(const Clock& clock) = 0;
    virtual bool sliceOver(const Clock& clock) = 0;
    /// Whether a runnable task of a more urgent priority ends the slice.
    virtual bool yieldsToUrgent() const = 0;
};

/// A slice lasts as long as there is work.
class NeverYield final : public YieldPolicy {
public:
    void sliceBegun(const Clock& /*clock*/) override {}
    bool sliceOver(const Clock& /*clock*/) override { return false; }
    bool yieldsToUrgent() const override { return false; }
};

/// A slice is one element.
class AlwaysYield final : public YieldPolicy {
public:
    void sliceBegun(const Clock& /*clock*/) override {}
    bool sliceOver(const Clock& /*clock*/) override { return true; }
    bool yieldsToUrgent() const override { return true; }
};

/// A slice lasts a fixed time; the clock is read at every 16th question only. Once over it stays
/// over, so that every loop of a nest ends.
class YieldByTime final : public YieldPolicy {
public:
    explicit YieldByTime(Duration slice = std::chrono::milliseconds{2}) : slice_{slice} {}
    void sliceBegun(const Clock& clock) override {
        end_ = clock.now() + slice_;
        asked_ = 0;
        over_ = false;
    }
    bool sliceOver(const Clock& clock) override {
        if (!over_ && ++asked_ % kQuestionsPerClockRead == 0) { over_ = clock.now() >= end_; }
        return over_;
    }
    bool yieldsToUrgent() const override { return true; }

private:
    static constexpr unsigned kQuestionsPerClockRead = 16;
    Duration slice_;
    TimePoint end_{};
    unsigned asked_ = 0;
    bool over_ = false;
};

}  // namespace Kiln

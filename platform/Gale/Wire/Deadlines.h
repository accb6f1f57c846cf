#pragma once

#include <functional>
#include <optional>
#include <set>
#include <utility>

#include "platform/Kiln/Clock.h"

namespace Gale::Wire {

/// The deadlines of all calls of one loop in one ordered set, so that the loop needs a single
/// timer. Pure; one thread.
class Deadlines {
public:
    /// One deadline; disarmed by its destruction. Must not outlive the Deadlines.
    class Timer {
    public:
        Timer(Deadlines& deadlines, std::function<void()> fire);
        Timer(const Timer&) = delete;
        Timer& operator=(const Timer&) = delete;
        ~Timer() { disarm(); }
        void arm(Kiln::TimePoint at);
        void disarm();

    private:
        friend class Deadlines;
        Deadlines& deadlines_;
        std::function<void()> fire_;
        std::optional<Kiln::TimePoint> at_;
    };

    /// Fires what is due. A timer may destroy itself or any other.
    void expire(Kiln::TimePoint now);
    std::optional<Kiln::TimePoint> next() const;

private:
    std::set<std::pair<Kiln::TimePoint, Timer*>> armed_;
};

}  // namespace Gale::Wire

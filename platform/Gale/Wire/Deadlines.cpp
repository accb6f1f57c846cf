#include "platform/Gale/Wire/Deadlines.h"

namespace Gale::Wire {

Deadlines::Timer::Timer(Deadlines& deadlines, std::function<void()> fire)
    : deadlines_{deadlines}, fire_{std::move(fire)} {}

void Deadlines::Timer::arm(Kiln::TimePoint at) {
    disarm();
    at_ = at;
    deadlines_.armed_.emplace(at, this);
}

void Deadlines::Timer::disarm() {
    if (!at_) { return; }
    deadlines_.armed_.erase({*at_, this});
    at_.reset();
}

void Deadlines::expire(Kiln::TimePoint now) {
    while (!armed_.empty() && armed_.begin()->first <= now) {
        Timer* timer = armed_.begin()->second;
        timer->disarm();
        const auto fire = timer->fire_;  // a copy: the timer may die of it
        fire();
    }
}

std::optional<Kiln::TimePoint> Deadlines::next() const {
    if (armed_.empty()) { return std::nullopt; }
    return armed_.begin()->first;
}

}  // namespace Gale::Wire

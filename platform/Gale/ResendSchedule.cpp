#include "platform/Gale/ResendSchedule.h"

#include "platform/Vel/Assert.h"

#include <algorithm>

namespace Gale {

ResendSchedule::ResendSchedule(const std::vector<Resend>& resends,
                               Kiln::TimePoint now,
                               Position told) {
    for (const Resend& resend : resends) {
        rounds_.push_back({&resend, now + resend.interval, told, std::nullopt});
    }
}

void ResendSchedule::advance(Kiln::TimePoint now) {
    for (Round& round : rounds_) {
        if (now < round.due) { continue; }
        const auto times = (now - round.due) / round.resend->interval + 1;
        const bool unfinished = round.waitsSince || underWay_ == &round;
        if (!unfinished) { round.waitsSince = round.due; }
        skipped_ += static_cast<std::uint64_t>(unfinished ? times : times - 1);
        round.due += times * round.resend->interval;
    }
}

std::optional<CursorRound> ResendSchedule::take() {
    VEL_ASSERT(underWay_ == nullptr);
    for (Round& round : rounds_) {
        if (!round.waitsSince) { continue; }
        if (underWay_ == nullptr || *round.waitsSince < *underWay_->waitsSince) {
            underWay_ = &round;
        }
    }
    if (underWay_ == nullptr) { return std::nullopt; }
    underWay_->waitsSince.reset();
    const Resend& resend = *underWay_->resend;
    return CursorRound{resend.filter,
                       resend.changedOnly ? std::optional{underWay_->told} : std::nullopt};
}

void ResendSchedule::over(Position told) {
    if (underWay_ != nullptr) { underWay_->told = told; }
    underWay_ = nullptr;
}

std::optional<Kiln::TimePoint> ResendSchedule::next() const {
    std::optional<Kiln::TimePoint> next;
    for (const Round& round : rounds_) { next = next ? std::min(*next, round.due) : round.due; }
    return next;
}

}  // namespace Gale

#include "platform/Gale/Cursor.h"

#include "platform/Gale/CursorStep.h"
#include "platform/Gale/Journal.h"
#include "platform/Vel/Assert.h"

namespace Gale {

Cursor::Cursor(Journal& journal, CursorFilter filter, Mode mode)
    : mode_(mode),
      filter_(std::move(filter)),
      journal_(journal),
      phase_(mode == Mode::updatesOnly ? Phase::sync : Phase::walk) {
    position_.lanes = filter_.lanes;
    position_.walking = phase_ == Phase::walk;
    const std::lock_guard lock{journal_.mutex_};
    journal_.attach(position_);
    told_ = position_.seen;
    for (std::size_t i = 0; i < kLanes; ++i) { counted_[i] = journal_.lanes_[i].count; }
}

Cursor::~Cursor() {
    if (attached_) { journal_.detach(position_); }
}

Cursor::Result Cursor::next(std::span<CursorMessage> out) {
    VEL_ASSERT(!out.empty());
    if (phase_ == Phase::ended) { return {0, State::ended}; }
    const Result result = Step{*this, out}.run();
    if (phase_ == Phase::ended) {
        journal_.detach(position_);
        attached_ = false;
    }
    return result;
}

void Cursor::resend(CursorRound round) {
    VEL_ASSERT(synced_ && attached_ && !round_);
    roundsTurn_ = false;
    round_ = Round{.wanted = std::move(round), .begun = {}, .lane = 0, .key = {}};
}

CursorStatistics Cursor::statistics() const {
    CursorStatistics result = statistics_;
    const Position head = journal_.head();
    result.lag = phase_ != Phase::ended && head > position_.seen ? head - position_.seen : 0;
    return result;
}

}  // namespace Gale

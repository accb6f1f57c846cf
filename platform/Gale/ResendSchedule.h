#pragma once

#include "platform/Gale/JournalEntry.h"
#include "platform/Gale/SubscribePlan.h"
#include "platform/Kiln/Clock.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Gale {

/// When which rounds of one stream are due. A round that is not over, or has not begun, when it is due
/// again is not queued twice: the later one is skipped.
class ResendSchedule final {
public:
    /// The first rounds are due an interval after `now`, and each after another one. The client was
    /// told at first what had changed up to `told`. `resends` outlive the schedule.
    ResendSchedule(const std::vector<Resend>& resends, Kiln::TimePoint now, Position told);

    void advance(Kiln::TimePoint now);
    /// The round that has been due for longest, if one is. It is under way until over().
    std::optional<CursorRound> take();
    /// None is under way any more; the client has been told by it as Cursor::told() says.
    void over(Position told);

    /// When the next one is due; nothing when none ever is.
    std::optional<Kiln::TimePoint> next() const;
    std::uint64_t skipped() const { return skipped_; }

private:
    struct Round {
        const Resend* resend = nullptr;
        Kiln::TimePoint due;
        Position told = 0;
        std::optional<Kiln::TimePoint> waitsSince;  // nothing: not due
    };

    std::vector<Round> rounds_;
    Round* underWay_ = nullptr;  // of rounds_
    std::uint64_t skipped_ = 0;
};

}  // namespace Gale

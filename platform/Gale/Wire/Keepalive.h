#pragma once

#include <cstdint>
#include <optional>

#include "platform/Kiln/Clock.h"

namespace Gale::Wire {

/// When we ping a silent client, and when a client pings too often. Pure: times are handed in.
class Keepalive {
public:
    struct Times {
        Kiln::Duration interval;  ///< silence before we ask
        Kiln::Duration timeout;   ///< for an answer
        Kiln::Duration permit;    ///< between two PINGs of an idle client
    };
    enum class Action : std::uint8_t { None, SendPing, Close };

    Keepalive(const Times& times, Kiln::TimePoint now) : times_{times}, lastByte_{now} {}

    /// Any byte from the client counts as life.
    void received(Kiln::TimePoint now);
    /// Asked about once a second.
    Action tick(Kiln::TimePoint now);

    /// A PING of the client. Strike: sooner than `permit` after the one before.
    enum class Verdict : std::uint8_t { Fine, Strike, TooMany };
    Verdict ping(Kiln::TimePoint now);
    /// We sent a HEADERS or DATA frame. Clients measure bandwidth with PINGs while data flows,
    /// thousands a second, so strikes count only in silence.
    void progress();

private:
    Times times_;
    Kiln::TimePoint lastByte_;
    std::optional<Kiln::TimePoint> asked_;
    std::optional<Kiln::TimePoint> lastPing_;
    unsigned strikes_ = 0;
};

}  // namespace Gale::Wire

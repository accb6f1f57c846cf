#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/Kiln/Clock.h"

namespace Gale::Wire {

/// What a client can do too often.
enum class Offence : std::uint8_t {
    Frame,           ///< any frame, since the last DATA or HEADERS frame of ours
    StreamReset,     ///< RST_STREAM by the client
    ProvokedReset,   ///< RST_STREAM by us, for an error of the client
    Settings,        ///< SETTINGS after the first
    HeaderOverflow,  ///< request head over the limit
    Last_,
};

/// Text for GOAWAY and trace.
std::string_view name(Offence offence);

/// Budgets of one connection against abuse: a token bucket for each kind of offence. Pure.
class Guard {
public:
    explicit Guard(const Kiln::Clock& clock);

    /// Takes `cost` tokens. False when the budget is used up: the connection has to go.
    [[nodiscard]] bool charge(Offence offence, double cost = 1);
    /// We made progress towards the client: what it sends is an answer to it, not a flood.
    void progress();

private:
    struct Bucket {
        double tokens;
        Kiln::TimePoint filled;
    };

    const Kiln::Clock& clock_;
    std::array<Bucket, static_cast<std::size_t>(Offence::Last_)> buckets_;
};

}  // namespace Gale::Wire

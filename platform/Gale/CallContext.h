#pragma once

#include "platform/Gale/JsonForms.h"
#include "platform/Gale/Server.h"
#include "platform/Gale/Subscribers.h"
#include "platform/Gale/ValueEncoding.h"
#include "platform/Gale/Wire/Status.h"
#include "platform/Kiln/Clock.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace Gale {

class Channel;
class StampClock;

/// What the calls of one service share. I/O thread.
struct CallContext {
    CallContext(const Kiln::Clock& itsClock,
                StampClock& itsStamps,
                std::span<const std::unique_ptr<Channel>> itsChannels,
                const Limits& itsLimits,
                Subscribers::Post post)
        : clock(itsClock),
          stamps(itsStamps),
          channels(itsChannels),
          limits(itsLimits),
          subscribers(std::move(post)) {}

    /// Why no further call may begin to read; nothing when it may.
    std::optional<Wire::Status> subscribersFull() const {
        if (subscribers.size() < limits.subscribers) { return std::nullopt; }
        return Wire::Status{Wire::Code::ResourceExhausted,
                            "there are " + std::to_string(subscribers.size()) +
                                " subscribers, as many as are allowed"};
    }

    /// For one subscriber in that encoding (json or jsonIetf), who shares it with the others.
    std::shared_ptr<JsonForms> jsonForms(ValueEncoding encoding) {
        auto& shared = encoding == ValueEncoding::json ? json_ : jsonIetf_;
        auto forms = shared.lock();
        if (!forms) {
            forms = std::make_shared<JsonForms>(encoding, limits.jsonBytes);
            shared = forms;
        }
        return forms;
    }

    const Kiln::Clock& clock;
    StampClock& stamps;  ///< StampClock::again() only
    const std::span<const std::unique_ptr<Channel>> channels;
    Limits limits;  ///< for calls that begin from now on
    Subscribers subscribers;
    std::size_t gets = 0;  ///< Get calls under way

private:
    std::weak_ptr<JsonForms> json_;
    std::weak_ptr<JsonForms> jsonIetf_;
};

}  // namespace Gale

#pragma once

#include <cstddef>
#include <deque>
#include <set>
#include <string>

#include "platform/Gale/Wire/Call.h"

namespace Gale::Wire {

class Router;

/// Handlers that exercise the layer, and what they saw. I/O thread.
///
///   /test.T/Echo     unary            replies the request; x-echo comes back as initial metadata,
///                                     x-echo-bin as trailer
///   /test.T/Fail     unary            "<code> <message>": ends with that status
///   /test.T/Throw    unary            throws
///   /test.T/Sleep    unary            never replies
///   /test.T/Numbers  server-streaming "<count> <size>": that many messages, the index in front
///   /test.T/Chat     bidi             echoes each message; OK after the half-close
///   /test.T/Early    bidi             INVALID_ARGUMENT on the first message
///   /test.T/Live     bidi             sends what push() gives, until endLive()
class TestService {
public:
    /// `service` must outlive the handlers.
    static void addTo(Router& router, TestService& service);

    /// To each open Live call.
    void push(const std::string& message);
    void endLive(const Status& status);
    std::size_t liveCalls() const { return live_.size(); }

    std::size_t handlers = 0;  ///< alive now
    std::size_t made = 0;
    std::deque<Status> cancelled;
    std::size_t fills = 0;     ///< calls of Numbers' source
    std::uint64_t pulled = 0;  ///< messages taken from Numbers' source

private:
    friend class LiveHandler;
    std::set<class LiveHandler*> live_;
};

}  // namespace Gale::Wire

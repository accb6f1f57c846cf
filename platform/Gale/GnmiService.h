#pragma once

#include "platform/Gale/Server.h"
#include "platform/Gale/Subscribers.h"

#include <memory>
#include <span>

namespace Gale::Wire {
class Router;
}

namespace Gale {

class Channel;

/// The gNMI RPCs over the channels: Capabilities, Subscribe (ONCE and STREAM, encoding PROTO) and
/// the clear refusals of Get and Set. I/O thread, but for addTo and Subscribers::wake.
class GnmiService final {
public:
    /// The clock and the channels outlive the service; the service outlives the server that it is
    /// added to.
    GnmiService(const Kiln::Clock& clock,
                std::span<const std::unique_ptr<Channel>> channels,
                const Limits& limits,
                Subscribers::Post post);

    void addTo(Wire::Router& router);
    Subscribers& subscribers() { return subscribers_; }

private:
    const Kiln::Clock& clock_;
    const std::span<const std::unique_ptr<Channel>> channels_;
    const Limits limits_;
    Subscribers subscribers_;
};

}  // namespace Gale

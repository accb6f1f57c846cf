#pragma once

#include "platform/Gale/CallContext.h"

#include <memory>
#include <span>

namespace Gale::Wire {
class Router;
}

namespace Gale {

class Channel;
class StampClock;

/// The gNMI RPCs over the channels: Capabilities, Get, Subscribe, and the clear refusal of Set. I/O
/// thread, but for addTo and Subscribers::wake.
class GnmiService final {
public:
    /// The clocks and the channels outlive the service; the service outlives the server that it is
    /// added to. `stamps`: those of the channels' changes.
    GnmiService(const Kiln::Clock& clock,
                StampClock& stamps,
                std::span<const std::unique_ptr<Channel>> channels,
                const Limits& limits,
                Subscribers::Post post);

    void addTo(Wire::Router& router);
    Subscribers& subscribers() { return context_.subscribers; }
    CallContext& context() { return context_; }

private:
    CallContext context_;
};

}  // namespace Gale

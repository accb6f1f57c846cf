#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <variant>

#include "forwarder/Flatten/FibMessages.h"

/// rtnetlink bytes into messages of the forwarding model. Serves the kernel's socket and FPM frames
/// alike. Stateless; any bytes are safe input.
namespace Pel::Forwarder {

/// A netlink message as it lies in a datagram or frame.
struct NetlinkFrame {
    std::uint16_t type = 0;
    std::uint16_t flags = 0;
    std::uint32_t sequence = 0;
    std::uint32_t port = 0;
    std::span<const std::byte> payload;  ///< behind the netlink header
};

/// Cuts a datagram into messages. The walk ends at the first header that does not fit.
class NetlinkReader {
public:
    explicit NetlinkReader(std::span<const std::byte> datagram) : rest_{datagram} {}
    std::optional<NetlinkFrame> next();
    bool broken() const { return broken_; }

private:
    std::span<const std::byte> rest_;
    bool broken_ = false;
};

/// A decoded change. `removed`: the object has gone, and only what identifies it can be relied on.
struct RtMessage {
    bool removed = false;
    bool replace = false;  ///< NLM_F_REPLACE
    bool append = false;   ///< NLM_F_APPEND
    std::variant<Link, BridgePort, VniFilter, Neighbour, Nexthop, Route> body;
};

/// None for messages that are malformed or not ours (other types, other families). A length that
/// does not fit makes a message malformed as a whole: half a route is worse than none.
std::optional<RtMessage> decode(const NetlinkFrame& frame);

}  // namespace Pel::Forwarder

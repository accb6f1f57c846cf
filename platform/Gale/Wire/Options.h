#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/Kiln/Clock.h"

namespace Gale::Wire {

/// Settings of a Server. The defaults suit a router with tens of collectors.
struct Options {
    std::string address = "127.0.0.1";  ///< numeric IPv4 or IPv6 address to listen on
    std::uint16_t port = 0;             ///< 0: any free port, see Server::port()

    std::size_t maxConnections = 256;             ///< further ones are closed at once
    std::size_t maxConnectionsPerPeer = 128;      ///< of one client address
    std::uint32_t maxConcurrentStreams = 100;     ///< calls open at a time on one connection
    std::size_t maxReceiveMessage = 4U << 20U;    ///< payload bytes of one request message
    std::size_t maxBufferedRequests = 8U << 20U;  ///< request bytes held for one connection
    std::size_t maxHeaderList = 16U << 10U;  ///< request head; each field counts name + value + 32

    Kiln::Duration stallTime = std::chrono::seconds(60);  ///< data waits and none moves: call ends
    Kiln::Duration prefaceTime = std::chrono::seconds(10);       ///< from connect to first SETTINGS
    Kiln::Duration keepaliveTime = std::chrono::seconds(60);     ///< silence before we send a PING
    Kiln::Duration keepaliveTimeout = std::chrono::seconds(20);  ///< for any byte after that PING
    Kiln::Duration pingPermit =
        std::chrono::seconds(5);  ///< PINGs of a client closer than this are strikes

    std::size_t outputBuffer = 64U << 10U;  ///< bytes made ahead of the socket, per connection
    std::size_t unsentLimit = 128U << 10U;  ///< TCP_NOTSENT_LOWAT
};

}  // namespace Gale::Wire

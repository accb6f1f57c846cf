#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Gale::Wire {

/// What is counted, for each connection and for the server as the sum of all that ever were.
enum class Count : std::uint8_t {
    CallsStarted,    ///< request heads received
    CallsFinished,   ///< ended by status of their handler
    CallsCancelled,  ///< reset by the client or lost with the connection
    CallsRefused,    ///< ended by this layer: bad head, unknown method, bad message
    CallsExpired,    ///< deadline over
    CallsStalled,    ///< the client took no data for the stall time
    MessagesReceived,
    BytesReceived,
    BytesSent,
    Writes,  ///< write system calls
    FramesReceived,
    DataFramesSent,
    ResetsReceived,
    ResetsSent,
    PingsReceived,
    PingStrikes,
    SettingsReceived,
    EmptyData,  ///< DATA frames without payload and END_STREAM
    HeaderOverflows,
    MissingTe,
    KeepaliveTimeouts,
    HandlerFailures,  ///< handlers that threw when told of a cancel
    GuardTrips,       ///< connections ended for abuse
    Last_,
};

/// Name for a status command, such as "callsStarted".
std::string_view name(Count count);

/// Plain numbers; I/O thread only.
class Counters {
public:
    void add(Count count, std::uint64_t by = 1) { values_[index(count)] += by; }
    std::uint64_t operator[](Count count) const { return values_[index(count)]; }
    Counters& operator+=(const Counters& other);

private:
    static std::size_t index(Count count) { return static_cast<std::size_t>(count); }
    std::array<std::uint64_t, static_cast<std::size_t>(Count::Last_)> values_{};
};

}  // namespace Gale::Wire

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Bench {

/// What a raw client got of one call: it takes bytes and looks at nothing but message boundaries.
struct RawReply {
    std::string bytes;  ///< messages with their prefixes
    std::uint64_t messages = 0;
    double seconds = 0;  ///< from the request to the end of the call
};

/// Makes a Subscribe call in mode ONCE for the whole AFT, again and again until an answer holds at
/// least `entries` messages; answers the last one.
RawReply subscribeUntil(std::uint16_t port, std::uint64_t entries);
/// One such call.
RawReply subscribeOnce(std::uint16_t port);
/// The limit: the same bytes, ready in memory, from a server that does nothing else.
RawReply replay(const RawReply& of);

}  // namespace Bench

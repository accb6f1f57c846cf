#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Bench {

/// What a call gave.
struct RawReply {
    std::string bytes;           ///< messages with their prefixes, sync included
    std::uint64_t messages = 0;  ///< syncs not counted
    double seconds = 0;          ///< from the request to the last message wanted
};

/// One Subscribe call in mode ONCE for the whole AFT.
RawReply subscribeOnce(std::uint16_t port);
/// A Subscribe call in mode STREAM, until as many messages have come.
RawReply subscribeUntil(std::uint16_t port, std::uint64_t entries);

/// The limit: a server that does nothing else than stream given bytes, ready in memory, as the
/// answer to any Subscribe call.
class ReplayServer {
public:
    /// @param bytes outlives the server
    explicit ReplayServer(const std::string& bytes);
    ReplayServer(const ReplayServer&) = delete;
    ReplayServer& operator=(const ReplayServer&) = delete;
    ~ReplayServer();
    std::uint16_t port() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// The same bytes from such a server.
RawReply replay(const RawReply& of);

}  // namespace Bench

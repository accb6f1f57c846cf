#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace AgentHost {

/// A numeric address and a port: "127.0.0.1:9339", "[::1]:9339".
struct ListenAddress {
    std::string address;
    std::uint16_t port = 0;

    /// nullopt when the text is none; names are not looked up.
    static std::optional<ListenAddress> parse(std::string_view text);
    /// Empty when the text is one, else what one looks like; for the check of an option.
    static std::string problem(const std::string& text);
    /// The text form; parse() reads it back.
    std::string text() const;
    /// Where a client on this machine reaches a server that listens here: for "any address"
    /// loopback.
    ListenAddress reachable() const;
    bool loopback() const;
    /// Whether somebody listens there: the kernel makes the connection, however busy he is, or, on
    /// a loopback address, has it wait because his queue is full. Takes a quarter of a second at
    /// most.
    bool takesConnections() const;
    /// Why a server could not listen here at this moment (in use, no such address, not permitted);
    /// empty when it could. Names no process.
    std::string unusable() const;
};

}  // namespace AgentHost

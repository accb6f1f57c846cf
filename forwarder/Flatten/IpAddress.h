#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Pel::Forwarder {

/// The numbers are the protocol versions, so that a trace reads well.
enum class IpFamily : std::uint8_t { None = 0, V4 = 4, V6 = 6 };

/// An IPv4 or IPv6 address, or none. Unused bytes are 0, so that equality is that of the bytes.
/// Link-local addresses carry no zone: the interface stands beside the address.
struct IpAddress {
    IpFamily family = IpFamily::None;
    std::array<std::uint8_t, 16> bytes{};

    /// None unless `raw` is 4 or 16 bytes long.
    static IpAddress fromBytes(std::span<const std::byte> raw);
    /// None unless `text` is a numeric address.
    static IpAddress parse(const std::string& text);

    bool isNone() const { return family == IpFamily::None; }
    std::size_t size() const {
        return family == IpFamily::V6 ? 16 : family == IpFamily::V4 ? 4 : 0;
    }
    auto operator<=>(const IpAddress&) const = default;
};

/// "10.0.0.1", "2001:db8::1", or "" for none.
std::string toString(const IpAddress& address);

/// A prefix; bits beyond the length are 0 when it comes from `make`.
struct IpPrefix {
    IpAddress address;
    std::uint8_t length = 0;

    /// Clears the bits beyond `length`, which must not exceed the address's width.
    static IpPrefix make(const IpAddress& address, std::uint8_t length);
    /// "10.0.0.0/8"; the family is None when the text is not a prefix.
    static IpPrefix parse(const std::string& text);

    bool isLinkLocal() const;  ///< fe80::/10 and longer
    auto operator<=>(const IpPrefix&) const = default;
};

std::string toString(const IpPrefix& prefix);

using EthAddress = std::array<std::uint8_t, 6>;

}  // namespace Pel::Forwarder

#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "model/Net/AddressFamily.h"

namespace Nexo {

/// An IPv4 or IPv6 address, or none. Bytes beyond the family's width are 0. Ordered by family, then
/// by number.
class IpGenAddr {
public:
    constexpr IpGenAddr() = default;
    /// 4 bytes of an IPv4 address, 16 of an IPv6 address; any other number gives none.
    explicit IpGenAddr(std::span<const std::uint8_t> bytes);
    /// nullopt unless the text is an address without prefix length and zone.
    static std::optional<IpGenAddr> parse(std::string_view text);

    AddressFamily family() const { return family_; }
    /// The address of its own family that is all zero, or none.
    bool isZero() const { return bytes_ == std::array<std::uint8_t, 16>{}; }
    /// 4, 16, or 0 bytes, most significant first.
    std::span<const std::uint8_t> bytes() const { return {bytes_.data(), width()}; }
    unsigned width() const {
        return family_ == AddressFamily::ipv4 ? 4 : family_ == AddressFamily::ipv6 ? 16 : 0;
    }
    /// "10.0.0.1"; "2001:db8::1" as RFC 5952 writes it, never with a dotted tail; "" for none.
    std::string stringValue() const;

    friend auto operator<=>(const IpGenAddr&, const IpGenAddr&) = default;
    template <class H>
    friend H AbslHashValue(H h, const IpGenAddr& a) {
        return H::combine(std::move(h), a.family_, a.bytes_);
    }

private:
    AddressFamily family_ = AddressFamily::none;
    std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace Nexo

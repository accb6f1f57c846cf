#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "model/Net/IpGenAddr.h"
#include "platform/Store/KeyCodec.h"

namespace Nexo {

/// An address prefix; bits beyond the length are 0. Ordered by family, address, length.
class IpPrefix {
public:
    IpPrefix() = default;
    /// Clears the bits beyond the length; a length above the address's width raises a RangeError.
    IpPrefix(const IpGenAddr& address, unsigned length);
    /// "10.0.0.0/8"; nullopt when the text is no prefix.
    static std::optional<IpPrefix> parse(std::string_view text);

    const IpGenAddr& address() const { return address_; }
    unsigned length() const { return length_; }
    std::string stringValue() const;

    friend auto operator<=>(const IpPrefix&, const IpPrefix&) = default;
    template <class H>
    friend H AbslHashValue(H h, const IpPrefix& p) {
        return H::combine(std::move(h), p.address_, p.length_);
    }

private:
    IpGenAddr address_;
    std::uint8_t length_ = 0;
};

}  // namespace Nexo

/// Family, address bytes, length.
template <>
struct Store::KeyCodec<Nexo::IpPrefix> {
    static std::string encode(const Nexo::IpPrefix& key);
    static std::optional<Nexo::IpPrefix> decode(std::string_view bytes);
};

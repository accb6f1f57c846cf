#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <utility>

#include "model/Fec/CharRange.h"
#include "platform/Store/KeyCodec.h"

namespace Pel::Stash {

/// Identity of one exported next hop, stable for (FEC, slot); 0 is none. Its string form is
/// decimal.
class OcNextHopIndex {
public:
    constexpr OcNextHopIndex() = default;
    constexpr explicit OcNextHopIndex(std::uint64_t value) : value_{value} {}
    /// Takes the string form off the range; raises as CharRange::needNumber() does.
    explicit OcNextHopIndex(CharRange& from) : value_{from.needNumber()} {}
    constexpr std::uint64_t value() const { return value_; }
    constexpr explicit operator bool() const { return value_ != 0; }
    std::string stringValue() const { return std::to_string(value_); }
    friend constexpr auto operator<=>(const OcNextHopIndex&, const OcNextHopIndex&) = default;
    template <class H>
    friend H AbslHashValue(H h, const OcNextHopIndex& i) {
        return H::combine(std::move(h), i.value_);
    }

private:
    std::uint64_t value_ = 0;
};

}  // namespace Pel::Stash

template <>
struct Store::KeyCodec<Pel::Stash::OcNextHopIndex> {
    static std::string encode(const Pel::Stash::OcNextHopIndex& key) {
        return KeyCodec<std::uint64_t>::encode(key.value());
    }
    static std::optional<Pel::Stash::OcNextHopIndex> decode(std::string_view bytes) {
        const auto number = KeyCodec<std::uint64_t>::decode(bytes);
        return number ? std::optional{Pel::Stash::OcNextHopIndex{*number}} : std::nullopt;
    }
};

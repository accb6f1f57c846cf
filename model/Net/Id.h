#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Store/KeyCodec.h"

namespace Nexo {

/// What one type of id offers besides, as static functions: specialised beside its alias.
template <class Tag>
struct IdFunctions {
    friend constexpr auto operator<=>(const IdFunctions&, const IdFunctions&) = default;
};

/// A number with a type of its own, so that one identity cannot be passed for another. Ordered,
/// hashable; 0 is none. Its bytes as a key are big-endian.
template <class Tag, class Number = std::uint64_t>
class Id : public IdFunctions<Tag> {
public:
    constexpr Id() = default;
    constexpr explicit Id(Number value) : value_{value} {}
    constexpr Number value() const { return value_; }
    constexpr explicit operator bool() const { return value_ != 0; }
    friend constexpr auto operator<=>(const Id&, const Id&) = default;
    template <class H>
    friend H AbslHashValue(H h, const Id& id) {
        return H::combine(std::move(h), id.value_);
    }

private:
    Number value_{};
};

}  // namespace Nexo

template <class Tag, class Number>
struct Store::KeyCodec<Nexo::Id<Tag, Number>> {
    static std::string encode(const Nexo::Id<Tag, Number>& key) {
        std::string bytes;
        appendBigEndian(bytes, key.value());
        return bytes;
    }
    static std::optional<Nexo::Id<Tag, Number>> decode(std::string_view bytes) {
        const auto number = takeBigEndian(bytes);
        if (!number || !bytes.empty() || !std::in_range<Number>(*number)) { return std::nullopt; }
        return Nexo::Id<Tag, Number>{static_cast<Number>(*number)};
    }
};

#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Store {

inline constexpr std::string_view kIdentityKey = "identity";

/// What a store says of itself, in its first meta record. The place of these fields is the same in
/// every layout version.
struct Identity {
    static constexpr std::uint32_t kLayoutVersion = 1;
    static constexpr std::uint32_t kByteOrder = 0x01020304;

    std::uint32_t version = 0;
    std::uint32_t byteOrder = 0;  // kByteOrder as the writing machine stores it
    std::array<char, 40> boot{};  // the kernel's boot id, zero padded
    std::uint64_t generation = 0;

    /// One for a new store of this boot.
    static Identity make();
    static std::optional<Identity> decode(std::string_view bytes);
    std::string encode() const;
    bool ofThisBoot() const;
    /// Why this process cannot use the store; empty when it can.
    std::string objection() const;
};

}  // namespace Store

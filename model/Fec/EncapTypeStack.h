#pragma once

#include <absl/container/inlined_vector.h>

#include <cstdint>
#include <string>

namespace Tunnel::TunnelTable {

/// Encapsulation type of the tunnel table. Other values occur and are carried as they are.
enum class EncapType : std::uint8_t { unset = 0, mpls = 4, udp = 9 };

/// "unset", "mpls", "udp"; a type without a name shows its number.
std::string stringValue(EncapType type);

}  // namespace Tunnel::TunnelTable

namespace Pel::Stash {

/// Encapsulations in their order, position 0 the innermost.
class EncapTypeStack {
public:
    /// More than this do not verify.
    static constexpr std::uint32_t kMaxEncaps = 16;

    std::uint8_t encaps() const { return static_cast<std::uint8_t>(types_.size()); }
    /// `i` is below encaps().
    Tunnel::TunnelTable::EncapType encap(std::uint8_t i) const { return types_[i]; }
    /// Adds one outside all others; beyond kMaxEncaps raises a RangeError.
    void push(Tunnel::TunnelTable::EncapType type);
    std::string stringValue() const;
    friend bool operator==(const EncapTypeStack&, const EncapTypeStack&) = default;

private:
    absl::InlinedVector<Tunnel::TunnelTable::EncapType, 16> types_;
};

}  // namespace Pel::Stash

#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string>

namespace Nexo {

/// A MAC address; all zero is none.
class EthAddr {
public:
    constexpr EthAddr() = default;
    constexpr explicit EthAddr(const std::array<std::uint8_t, 6>& bytes) : bytes_{bytes} {}
    const std::array<std::uint8_t, 6>& bytes() const { return bytes_; }
    bool isZero() const { return bytes_ == std::array<std::uint8_t, 6>{}; }
    /// "00:1c:73:00:00:01".
    std::string stringValue() const;
    friend auto operator<=>(const EthAddr&, const EthAddr&) = default;

private:
    std::array<std::uint8_t, 6> bytes_{};
};

}  // namespace Nexo

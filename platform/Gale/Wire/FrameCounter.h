#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace Gale::Wire {

/// Counts the HTTP/2 frames in a byte stream of a client, also those that nghttp2 skips without a
/// callback (unknown types, frames of closed streams). Pure; never fails.
class FrameCounter {
public:
    /// Frames whose head is completed by `bytes`.
    std::size_t feed(std::span<const std::byte> bytes);

private:
    static constexpr std::size_t kHead = 9;
    std::size_t skip_ = 24;  // the client's connection preface, later the payload
    std::array<std::byte, kHead> head_{};
    std::size_t headBytes_ = 0;
};

}  // namespace Gale::Wire

#include "platform/Gale/Wire/FrameCounter.h"

#include <algorithm>

namespace Gale::Wire {

std::size_t FrameCounter::feed(std::span<const std::byte> bytes) {
    std::size_t frames = 0;
    while (!bytes.empty()) {
        if (skip_ > 0) {
            const std::size_t n = std::min(skip_, bytes.size());
            skip_ -= n;
            bytes = bytes.subspan(n);
            continue;
        }
        const std::size_t n = std::min(kHead - headBytes_, bytes.size());
        std::copy_n(bytes.begin(), n, &head_[headBytes_]);
        headBytes_ += n;
        bytes = bytes.subspan(n);
        if (headBytes_ < kHead) { break; }
        headBytes_ = 0;
        ++frames;
        skip_ = (std::to_integer<std::size_t>(head_[0]) << 16U) |
                (std::to_integer<std::size_t>(head_[1]) << 8U) |
                std::to_integer<std::size_t>(head_[2]);
    }
    return frames;
}

}  // namespace Gale::Wire

#pragma once

#include "platform/Gale/SharedBytes.h"

#include <atomic>
#include <cstdint>
#include <string_view>

namespace Gale {

/// The one allocation behind SharedBytes: this header, the annex, the bytes.
struct alignas(8) SharedBytes::Block {
    static Block* make(std::string_view bytes, std::string_view annex);

    void addUser() noexcept { count.fetch_add(1, std::memory_order_relaxed); }
    void release() noexcept;

    char* data() { return reinterpret_cast<char*>(this + 1); }
    const char* data() const { return reinterpret_cast<const char*>(this + 1); }
    std::string_view annex() const { return {data(), annexSize}; }
    std::string_view bytes() const { return {data() + annexSize, size}; }
    std::int64_t footprint() const {
        return static_cast<std::int64_t>(sizeof(Block)) + annexSize + size;
    }

    std::atomic<std::uint32_t> count{1};
    std::uint32_t size = 0;
    std::uint32_t annexSize = 0;
};

}  // namespace Gale

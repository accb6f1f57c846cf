#pragma once

#include <array>
#include <atomic>
#include <cstdint>

/// The bytes of a ring file; see TRACE-FORMAT.md.
namespace Blink::Layout {

constexpr std::array<char, 8> kMagic{'P', 'E', 'L', 'B', 'L', 'N', 'K', '1'};
constexpr std::uint32_t kVersion = 1;
constexpr std::uint64_t kSiteTableBytes = 1U << 20;

struct Header {
    std::array<char, 8> magic;
    std::uint32_t version;
    std::uint32_t slotBytes;
    std::uint64_t slotCount;
    std::uint64_t siteTableOffset;
    std::uint64_t siteTableBytes;
    std::uint64_t slotsOffset;
    std::uint64_t pid;
    std::uint64_t nextMessage;    // atomic
    std::uint64_t siteBytesUsed;  // atomic; entries below it are whole
};
static_assert(sizeof(Header) == 72);

/// Followed by handle, function, file and format, without terminators.
struct Site {
    std::uint32_t id;
    std::int32_t line;
    std::uint16_t level;
    std::uint16_t handleBytes;
    std::uint16_t functionBytes;
    std::uint16_t fileBytes;
    std::uint32_t formatBytes;
};
static_assert(sizeof(Site) == 20);

struct Slot {
    std::uint64_t sequence;  // atomic; 2n + 1 while message n is written, 2n + 2 when it is whole
    std::int64_t wallNanoseconds;
    std::uint32_t site;
    std::uint32_t thread;
    std::uint32_t argumentBytes;
    std::uint32_t reserved;
};
static_assert(sizeof(Slot) == 32);

}  // namespace Blink::Layout

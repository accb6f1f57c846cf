#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace Gale {

/// Bytes that are the same in many messages; kept once, for as long as the process lives. Behind
/// them there are Segments::kReadable bytes at least that may be read, too.
struct Segment {
    std::string_view bytes;
    std::uint16_t number = 0;  ///< names it in packed bytes; 0: has to be written out
};

/// The segments that prepared paths are made of: as many as there are in the schemas, each for some
/// lengths of a key.
namespace Segments {

/// How many have a number.
inline constexpr std::size_t kMost = 1U << 14U;
/// A shorter one is written out in less than its number takes.
inline constexpr std::size_t kLeastBytes = 4;

/// Copies of a size that the compiler knows are quick: a segment is copied with what follows.
inline constexpr std::size_t kReadable = 32;

/// The one segment of these bytes. Any thread.
const Segment& of(std::string_view bytes);
/// By number, the bytes; empty where of() has not given out the number. Any thread may read those
/// whose numbers it was told.
std::span<const std::string_view> byNumber();

}  // namespace Segments

}  // namespace Gale

#pragma once

#include "platform/Gale/SharedBytes.h"

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <utility>

namespace Gale {

/// What an entry is, in the order in which entries refer to each other: a lane refers to entries
/// of earlier lanes, or of its own.
enum class Lane : std::uint8_t { nextHops, groups, prefixes, flags, counters, summaries };
inline constexpr std::size_t kLanes = 6;

constexpr std::size_t index(Lane lane) {
    return static_cast<std::size_t>(lane);
}
constexpr Lane laneAt(std::size_t i) {
    return static_cast<Lane>(i);
}

/// A set of lanes, one bit for each.
using LaneMask = std::uint8_t;
inline constexpr LaneMask kAllLanes = (1U << kLanes) - 1U;
constexpr LaneMask maskOf(Lane lane) {
    return static_cast<LaneMask>(1U << index(lane));
}
constexpr bool has(LaneMask mask, Lane lane) {
    return (mask & maskOf(lane)) != 0;
}

/// Names an entry inside its lane; what the numbers mean is the caller's. Entries of a lane are
/// walked in this order.
struct EntryKey {
    std::uint64_t scope = 0;
    std::uint64_t hi = 0;
    std::uint64_t lo = 0;

    // clang-tidy 14 takes the generated comparison with 0 for a null pointer.
    friend constexpr auto operator<=>(const EntryKey&,
                                      const EntryKey&) = default;  // NOLINT(modernize-use-nullptr)
    template <typename H>
    friend H AbslHashValue(H h, const EntryKey& k) {
        return H::combine(std::move(h), k.scope, k.hi, k.lo);
    }
};

/// One entry named by another's content.
struct Reference {
    Lane lane = Lane::nextHops;
    EntryKey key;

    friend constexpr auto operator<=>(const Reference&, const Reference&) = default;
    template <typename H>
    friend H AbslHashValue(H h, const Reference& r) {
        return H::combine(std::move(h), r.lane, r.key);
    }
};

/// The number of a change, counted from 1 over all lanes; 0 is before all of them.
using Position = std::uint64_t;
inline constexpr Position kNever = ~Position{0};

/// What an entry holds: bytes ready to be sent, or a value with its time stamp that the service
/// encodes when it sends it (millions of prefixes are a group id each). Two words.
class Content final {
public:
    Content() = default;
    explicit Content(SharedBytes bytes) noexcept;
    /// `stamp` in nanoseconds since the epoch, 0 to 2^62.
    Content(std::uint64_t value, std::int64_t stamp) noexcept
        : word_((static_cast<std::uint64_t>(stamp) << 1U) | 1U), value_(value) {}

    Content(const Content& other) noexcept;
    Content(Content&& other) noexcept
        : word_(std::exchange(other.word_, 0)), value_(std::exchange(other.value_, 0)) {}
    Content& operator=(Content other) noexcept {
        std::swap(word_, other.word_);
        std::swap(value_, other.value_);
        return *this;
    }
    ~Content();

    bool isValue() const { return (word_ & 1U) != 0; }
    std::uint64_t value() const { return value_; }
    std::int64_t stamp() const { return isValue() ? static_cast<std::int64_t>(word_ >> 1U) : 0; }
    /// Null for a value.
    SharedBytes bytes() const;
    /// As bytes(), without counting: valid while this object is.
    std::string_view view() const;
    /// The references given with the bytes.
    std::span<const Reference> references() const;

private:
    static_assert(sizeof(std::uintptr_t) == sizeof(std::uint64_t));

    SharedBytes::Block* block() const;  // null for a value

    std::uint64_t word_ = 0;  // block pointer, or stamp << 1 | 1
    std::uint64_t value_ = 0;
};

}  // namespace Gale

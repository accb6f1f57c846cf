#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace Checker {

/// Times in ns in buckets that are at most 1/16 of their value wide.
class LagHistogram {
public:
    void add(std::int64_t ns);
    void add(const LagHistogram& other);
    std::uint64_t count() const { return count_; }
    std::int64_t max() const { return max_; }
    /// Upper end of the bucket that holds the share, 0.99 for p99; 0 without values.
    std::int64_t quantile(double share) const;

private:
    static constexpr std::size_t kSteps = 16;
    std::array<std::uint64_t, 64 * kSteps> buckets_{};
    std::uint64_t count_ = 0;
    std::int64_t max_ = 0;
};

}  // namespace Checker

#include "test/checker/LagHistogram.h"

#include <algorithm>
#include <bit>

namespace Checker {

void LagHistogram::add(std::int64_t ns) {
    const std::uint64_t value = ns < 0 ? 0 : static_cast<std::uint64_t>(ns);
    std::size_t bucket = static_cast<std::size_t>(value);
    if (value >= kSteps) {
        const unsigned shift = static_cast<unsigned>(std::bit_width(value)) - 5;
        bucket = shift * kSteps + static_cast<std::size_t>(value >> shift);
    }
    ++buckets_[bucket];
    ++count_;
    max_ = std::max(max_, ns);
}

void LagHistogram::add(const LagHistogram& other) {
    for (std::size_t i = 0; i < buckets_.size(); ++i) { buckets_[i] += other.buckets_[i]; }
    count_ += other.count_;
    max_ = std::max(max_, other.max_);
}

std::int64_t LagHistogram::quantile(double share) const {
    if (count_ == 0) { return 0; }
    const auto wanted = static_cast<std::uint64_t>(share * static_cast<double>(count_));
    std::uint64_t seen = 0;
    for (std::size_t i = 0; i < buckets_.size(); ++i) {
        seen += buckets_[i];
        if (seen <= wanted) { continue; }
        if (i < kSteps) { return static_cast<std::int64_t>(i); }
        const std::size_t shift = i / kSteps - 1;
        const std::size_t top = i - shift * kSteps + 1;
        return std::min(static_cast<std::int64_t>(top << shift) - 1, max_);
    }
    return max_;
}

}  // namespace Checker

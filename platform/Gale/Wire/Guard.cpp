#include "platform/Gale/Wire/Guard.h"

#include <algorithm>
#include <chrono>

namespace Gale::Wire {
namespace {

struct Limit {
    std::string_view name;
    double burst;
    double perSecond;
};

// Far above what stock clients do, far below what costs us: grpc-go sends thousands of PINGs and
// WINDOW_UPDATEs during a bulk stream, but each follows DATA of ours, which refills `Frame`.
constexpr std::array<Limit, static_cast<std::size_t>(Offence::Last_)> kLimits{{
    {"too many frames", 10'000, 100},
    {"too many stream resets", 200, 10},
    {"too many stream errors", 200, 10},
    {"too many SETTINGS", 10, 10.0 / 60},
    {"too large headers", 1, 1.0 / 60},
}};

const Limit& limit(Offence offence) {
    return kLimits[static_cast<std::size_t>(offence)];
}

}  // namespace

std::string_view name(Offence offence) {
    return limit(offence).name;
}

Guard::Guard(const Kiln::Clock& clock) : clock_{clock} {
    for (std::size_t i = 0; i < buckets_.size(); ++i) {
        buckets_[i] = {kLimits[i].burst, clock.now()};
    }
}

bool Guard::charge(Offence offence, double cost) {
    Bucket& bucket = buckets_[static_cast<std::size_t>(offence)];
    const auto now = clock_.now();
    const double seconds = std::chrono::duration<double>(now - bucket.filled).count();
    bucket.tokens =
        std::min(limit(offence).burst, bucket.tokens + seconds * limit(offence).perSecond);
    bucket.filled = now;
    bucket.tokens -= cost;
    return bucket.tokens >= 0;
}

void Guard::progress() {
    buckets_[static_cast<std::size_t>(Offence::Frame)].tokens = limit(Offence::Frame).burst;
}

}  // namespace Gale::Wire

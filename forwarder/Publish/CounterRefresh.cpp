#include "forwarder/Publish/CounterRefresh.h"

namespace Pel::Forwarder {

bool CounterRefresh::write(StoredCounters& counters, RetryingCommit& commit, std::size_t limit) {
    const auto now = static_cast<std::uint64_t>((clock_.now() - began_) / kSecond);
    if (now >= kParts && second_ <= now - kParts) {  // each of them is due by now, once
        second_ = now - kParts + 1;
        next_ = 0;
    }
    StoredCounters::Walk walk{second_ % kParts, kParts, next_};
    const bool more = counters.rewrite(walk, limit);
    if (!commit.commit(0)) { return false; }
    next_ = more ? walk.next : 0;
    second_ += more ? 0 : 1;
    return true;
}

}  // namespace Pel::Forwarder

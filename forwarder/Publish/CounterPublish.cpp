#include "forwarder/Publish/CounterPublish.h"

namespace Pel::Forwarder {

namespace {

constexpr std::size_t kBatch = 256;  // counters of a transaction

StoredCounters::Index indexOf(OcNextHopNumber nextHop) {
    return StoredCounters::Index{nextHop};
}

}  // namespace

CounterPublish::CounterPublish(MemberCounters& counters,
                               FlatStore& store,
                               Store::Writer& writer,
                               const Kiln::Clock& clock)
    : counters_{counters}, store_{store}, commit_{writer, clock}, refresh_{clock} {}

bool CounterPublish::run(absl::FunctionRef<bool()> mustYield) {
    if (commit_.mustWait()) { return false; }
    for (;;) {
        batch_.clear();
        while (batch_.size() < kBatch) {
            const auto nextHop = counters_.takeChanged();
            if (!nextHop) { break; }
            batch_.push_back(*nextHop);
        }
        if (batch_.empty() && !refresh_.due()) { return false; }
        if (!writeChanged() || !writeAgain()) { return false; }
        if (mustYield()) { return true; }
    }
}

/// Reads what founds the traffic of next hops that are new here, and leaves those out that the store does not hold. In a transaction that
/// writes nothing: what was read counts only when reading did not fail.
bool CounterPublish::lookAtPublished() {
    std::vector<std::optional<CountedTraffic>> published(batch_.size());
    std::vector<bool> there(batch_.size());
    for (std::size_t i = 0; i < batch_.size(); ++i) {
        there[i] = store_.fecOf(batch_[i]).has_value();
        if (there[i] && counters_.wantsPublished(batch_[i])) {
            published[i] = store_.counters().find(indexOf(batch_[i])).value_or(CountedTraffic{});
        }
    }
    if (!commit_.commit(0)) { return failed(); }
    std::size_t kept = 0;
    for (std::size_t i = 0; i < batch_.size(); ++i) {
        const OcNextHopNumber nextHop = batch_[i];
        if (published[i]) { counters_.publishedIs(nextHop, *published[i]); }
        if (there[i]) {
            batch_[kept++] = nextHop;
        } else {
            counters_.notPublished(nextHop);
        }
    }
    batch_.resize(kept);
    return true;
}

bool CounterPublish::writeChanged() {
    if (batch_.empty()) { return true; }
    if (!lookAtPublished()) { return false; }
    for (const OcNextHopNumber nextHop : batch_) {
        if (const auto counted = counters_.traffic(nextHop)) {
            store_.counters().set(indexOf(nextHop), *counted);
        }
    }
    return commit_.commit(batch_.size()) || failed();
}

bool CounterPublish::writeAgain() {
    return !refresh_.due() || refresh_.write(store_.counters(), commit_, kBatch);
}

bool CounterPublish::failed() {
    for (const OcNextHopNumber nextHop : batch_) { counters_.notPublished(nextHop); }
    return false;
}

}  // namespace Pel::Forwarder

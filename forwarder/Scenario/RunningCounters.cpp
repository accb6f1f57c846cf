#include "forwarder/Scenario/RunningCounters.h"

#include <algorithm>
#include <chrono>

namespace Pel::Forwarder {

namespace {

constexpr Kiln::Duration kSecond = std::chrono::seconds{1};

/// `value` and `rate` times `seconds` more; `wrap` 0: modulo 2^64.
std::uint64_t counted(std::uint64_t value,
                      std::uint64_t rate,
                      std::uint64_t seconds,
                      std::uint64_t wrap) {
    if (wrap == 0) { return value + rate * seconds; }
    __extension__ using Wide = unsigned __int128;
    const Wide more = static_cast<Wide>(rate % wrap) * (seconds % wrap) % wrap;
    return static_cast<std::uint64_t>((value % wrap + more) % wrap);
}

}  // namespace

std::uint64_t RunningCounters::fullSeconds(Kiln::Duration now) {
    return static_cast<std::uint64_t>(now / kSecond);
}

void RunningCounters::advance(Running& counter, std::uint64_t second) {
    CounterItem& item = counter.item;
    const std::uint64_t passed = second - std::min(second, counter.second);
    item.packets = counted(item.packets.value_or(0), item.packetRate, passed, item.wrap);
    item.octets = counted(item.octets.value_or(0), item.octetRate, passed, item.wrap);
    counter.second = std::max(second, counter.second);
}

CounterItem RunningCounters::set(const CounterItem& item, Kiln::Duration now) {
    Running& counter = counters_[item.index];
    advance(counter, fullSeconds(now));
    const CounterItem before = counter.item;
    counter.item = item;
    if (!item.packets) { counter.item.packets = before.packets; }
    if (!item.octets) { counter.item.octets = before.octets; }
    advance(counter, counter.second);  // below its wrap
    if (item.packetRate != 0 || item.octetRate != 0) {
        if (counting_.empty()) { second_ = fullSeconds(now) + 1; }
        counting_.insert(item.index);
    } else {
        counting_.erase(item.index);
    }
    return counter.item;
}

void RunningCounters::del(FlexCounters::CounterIndex index) {
    counters_.erase(index);
    counting_.erase(index);
}

void RunningCounters::due(Kiln::Duration now, Changes& to, std::size_t limit) {
    const std::uint64_t second = fullSeconds(now);
    if (second < second_) { return; }
    auto next = bookmark_ ? counting_.upper_bound(*bookmark_) : counting_.begin();
    for (; next != counting_.end() && to.size() < limit; ++next) {
        Running& counter = counters_.at(*next);
        bookmark_ = *next;
        if (counter.second >= second) { continue; }  // was set in this second
        advance(counter, second);
        to.emplace_back(counter.item);
    }
    if (next != counting_.end()) { return; }
    bookmark_.reset();
    second_ = second + 1;
}

std::optional<Kiln::Duration> RunningCounters::nextDue() const {
    if (counting_.empty()) { return std::nullopt; }
    return kSecond * static_cast<std::int64_t>(second_);
}

}  // namespace Pel::Forwarder

#include "platform/Gale/StreamWishes.h"

#include "platform/Gale/Channel.h"
#include "platform/Gale/RequestCheck.h"

#include <proto/gnmi.pb.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace Gale {

using RequestCheck::invalid;
using Wire::Status;

namespace {

/// Longer ones come to the same, and can be added to a time.
constexpr Kiln::Duration kLongest = std::chrono::hours(24 * 365 * 10);

constexpr LaneMask kSampledLanes = maskOf(Lane::counters);

CursorFilter inLanes(const std::shared_ptr<const EntryFilter>& filter, LaneMask lanes) {
    CursorFilter some = EntryFilter::forCursor(filter);
    some.lanes &= lanes;
    return some;
}

bool covers(const std::shared_ptr<const EntryFilter>& filter, Lane lane, const EntryKey& key) {
    return filter->of(lane, key) != EntryFilter::Coverage::none;
}

}  // namespace

std::optional<Status> StreamWishes::readInterval(const char* name,
                                                 std::uint64_t nanoseconds,
                                                 const std::string& path,
                                                 Kiln::Duration& to) const {
    const auto shortest = static_cast<std::uint64_t>(limits_.shortestInterval.count());
    if (nanoseconds < shortest && nanoseconds > 0) {
        return invalid(std::string{name} + " " + std::to_string(nanoseconds) + " (" + path +
                       ") is too short: the shortest is " + std::to_string(shortest) +
                       " nanoseconds");
    }
    to = Kiln::Duration{static_cast<Kiln::Duration::rep>(
        std::min(nanoseconds, static_cast<std::uint64_t>(kLongest.count())))};
    return std::nullopt;
}

std::optional<Status> StreamWishes::read(const gnmi::Subscription& subscription,
                                         const std::string& path,
                                         Wish& to) const {
    switch (static_cast<int>(subscription.mode())) {
        case gnmi::ON_CHANGE:
            to.mode = Mode::onChange;
            break;
        case gnmi::TARGET_DEFINED:
            to.mode = Mode::serverChooses;
            if (subscription.sample_interval() != 0) {
                return invalid("sample_interval has no meaning in mode TARGET_DEFINED (" + path +
                               ")");
            }
            break;
        case gnmi::SAMPLE:
            to.mode = Mode::sample;
            to.changedOnly = subscription.suppress_redundant();
            if (auto bad = readInterval(
                    "sample_interval", subscription.sample_interval(), path, to.sample)) {
                return bad;
            }
            if (to.sample == Kiln::Duration::zero()) { to.sample = limits_.shortestInterval; }
            break;
        default:
            return invalid("unknown subscription mode " +
                           std::to_string(static_cast<int>(subscription.mode())) + " (" + path +
                           ")");
    }
    // A sample that leaves nothing out is a heartbeat by itself.
    if (to.mode == Mode::sample && !to.changedOnly) { return std::nullopt; }
    return readInterval(
        "heartbeat_interval", subscription.heartbeat_interval(), path, to.heartbeat);
}

std::optional<Status> StreamWishes::add(const gnmi::Subscription& subscription,
                                        const PathPattern& path) {
    Wish wish;
    if (auto bad = read(subscription, path.text(), wish)) { return bad; }
    wishes_[wish].push_back(path);
    return std::nullopt;
}

void StreamWishes::addResends(const Wish& wish,
                              const Filter& filter,
                              std::vector<Resend>& to) const {
    Kiln::Duration sample = wish.sample;
    if (wish.mode == Mode::sample) {
        to.push_back({sample, wish.changedOnly, EntryFilter::forCursor(filter)});
    } else if (wish.mode == Mode::serverChooses && (filter->lanes() & kSampledLanes) != 0) {
        sample = limits_.countersInterval;
        to.push_back({sample, true, inLanes(filter, kSampledLanes)});
    }
    if (wish.heartbeat == Kiln::Duration::zero()) { return; }
    // What is looked at once in a sample cannot be told more often.
    const auto often =
        wish.mode == Mode::sample ? std::max(wish.heartbeat, sample) : wish.heartbeat;
    to.push_back({often, false, EntryFilter::forCursor(filter)});
}

void StreamWishes::applyTo(SubscribePlan& plan) const {
    const Channel& channel = *plan.channel;
    std::vector<PathPattern> onChange;
    std::vector<PathPattern> chosen;
    const auto compiled = [&](std::vector<PathPattern> paths) {
        return std::make_shared<const EntryFilter>(*channel.view, channel.schema, std::move(paths));
    };
    for (const auto& [wish, paths] : wishes_) {
        addResends(wish, compiled(paths), plan.resends);
        if (wish.mode == Mode::sample) { continue; }
        auto& told = wish.mode == Mode::onChange ? onChange : chosen;
        told.insert(told.end(), paths.begin(), paths.end());
    }
    if (plan.resends.empty()) { return; }
    plan.cursorFilter.deferred = [onChange = compiled(std::move(onChange)),
                                  chosen = compiled(std::move(chosen))](Lane lane,
                                                                        const EntryKey& key) {
        return !covers(onChange, lane, key) &&
               (has(kSampledLanes, lane) || !covers(chosen, lane, key));
    };
}

}  // namespace Gale

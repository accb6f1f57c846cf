#include "forwarder/Scenario/FileSource.h"

#include <algorithm>
#include <utility>
#include <variant>

namespace Pel::Forwarder {

FileSource::FileSource(Scenario scenario) : scenario_{std::move(scenario)} {
    for (const Change& change : scenario_.initial) {
        if (const auto* vrf = std::get_if<VrfItem>(&change)) {
            vrfIds_.insert(vrf->id);
            vrfs_.insert(vrf->name);
        } else if (const auto* nextHop = std::get_if<NextHopItem>(&change)) {
            nextHops_.insert(nextHop->entry.index);
        } else if (const auto* fec = std::get_if<FecItem>(&change)) {
            fecs_.insert(fec->id);
        } else if (const auto* route = std::get_if<RouteItem>(&change)) {
            routes_.insert(route->key);
        } else if (const auto* counter = std::get_if<CounterItem>(&change)) {
            counters_.insert(counter->index);
        } else if (const auto* ports = std::get_if<UdpPortsItem>(&change)) {
            udpPortSources_.insert(ports->source);
        } else if (const auto* groups = std::get_if<DecapGroupsItem>(&change)) {
            decapGroupSources_.insert(groups->source);
        }
    }
}

bool FileSource::describe(Changes& to, std::size_t limit) {
    const std::size_t end = std::min(described_ + limit, scenario_.initial.size());
    const bool any = described_ < end;
    while (described_ < end) { give(scenario_.initial[described_++], {}, to); }
    return any;
}

void FileSource::describeReadiness(Changes& to) {
    to.insert(to.end(), scenario_.ready.begin(), scenario_.ready.end());
}

/// Appends the change. That of a counter is given as the value that it makes.
void FileSource::give(const Change& change, Kiln::Duration now, Changes& to) {
    if (const auto* counter = std::get_if<CounterItem>(&change)) {
        to.emplace_back(running_.set(*counter, now));
        return;
    }
    if (const auto* counter = std::get_if<CounterDel>(&change)) { running_.del(counter->index); }
    to.push_back(change);
}

std::optional<Kiln::Duration> FileSource::stepDue() const {
    if (step_ >= steps().size()) { return std::nullopt; }
    return roundBegan_ + steps()[step_].at;
}

std::optional<Kiln::Duration> FileSource::nextDue() const {
    const auto step = stepDue();
    const auto counters = running_.nextDue();
    return step && counters ? std::min(*step, *counters) : step ? step : counters;
}

void FileSource::due(Kiln::Duration now, Changes& to, std::size_t limit) {
    for (auto next = stepDue(); next && *next <= now && to.size() < limit; next = stepDue()) {
        const Changes& changes = steps()[step_].changes;
        const std::size_t end = std::min(position_ + limit - to.size(), changes.size());
        while (position_ < end) { give(changes[position_++], now, to); }
        if (position_ == changes.size()) { stepDone(now); }
    }
    running_.due(now, to, limit);
}

void FileSource::stepDone(Kiln::Duration now) {
    position_ = 0;
    if (++step_ < steps().size()) { return; }
    if (scenario_.rounds && round_ + 1 >= *scenario_.rounds) { return; }
    ++round_;
    step_ = 0;
    roundBegan_ += scenario_.every;
    if (roundBegan_ + scenario_.every < now) { roundBegan_ = now; }
}

}  // namespace Pel::Forwarder

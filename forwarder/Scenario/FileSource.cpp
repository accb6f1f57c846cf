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
    while (described_ < end) { to.push_back(scenario_.initial[described_++]); }
    return any;
}

void FileSource::describeReadiness(Changes& to) {
    to.insert(to.end(), scenario_.ready.begin(), scenario_.ready.end());
}

std::optional<Kiln::Duration> FileSource::nextDue() const {
    if (step_ >= steps().size()) { return std::nullopt; }
    return roundBegan_ + steps()[step_].at;
}

void FileSource::due(Kiln::Duration now, Changes& to, std::size_t limit) {
    for (auto next = nextDue(); next && *next <= now && to.size() < limit; next = nextDue()) {
        const Changes& changes = steps()[step_].changes;
        const std::size_t end = std::min(position_ + limit - to.size(), changes.size());
        while (position_ < end) { to.push_back(changes[position_++]); }
        if (position_ == changes.size()) { stepDone(now); }
    }
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

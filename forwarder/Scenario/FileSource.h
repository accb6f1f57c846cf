#pragma once

#include <absl/container/btree_set.h>

#include <cstdint>
#include <string>

#include "forwarder/Scenario/ChangeSource.h"
#include "forwarder/Scenario/RunningCounters.h"
#include "forwarder/Scenario/Scenario.h"

namespace Pel::Forwarder {

/// Plays the scenario of a file. Steps that are late follow one another at once; a round that would begin more than a round
/// late begins now, so that a pause is not made up for. Counters with a rate count on once a second, and do make up for it.
class FileSource final : public ChangeSource {
public:
    explicit FileSource(Scenario scenario);

    bool describe(Changes& to, std::size_t limit) override;
    void describeReadiness(Changes& to) override;
    bool hasVrfId(Vrf::VrfId id) const override { return vrfIds_.contains(id); }
    bool hasVrf(const std::string& name) const override { return vrfs_.contains(name); }
    bool hasNextHop(Stash::OcNextHopIndex index) const override {
        return nextHops_.contains(index);
    }
    bool hasFec(Pel::FecId id) const override { return fecs_.contains(id); }
    bool hasRoute(const RouteKey& key) const override { return routes_.contains(key); }
    bool hasCounter(FlexCounters::CounterIndex index) const override {
        return counters_.contains(index);
    }
    bool hasUdpPorts(const std::string& source) const override {
        return udpPortSources_.contains(source);
    }
    bool hasDecapGroups(const std::string& source) const override {
        return decapGroupSources_.contains(source);
    }
    std::uint64_t firstFreeIndex() const override { return scenario_.firstFreeIndex; }
    void due(Kiln::Duration now, Changes& to, std::size_t limit) override;
    std::optional<Kiln::Duration> nextDue() const override;

private:
    const std::vector<Scenario::Step>& steps() const {
        return round_ == 0 ? scenario_.firstRound : scenario_.laterRounds;
    }
    void stepDone(Kiln::Duration now);
    std::optional<Kiln::Duration> stepDue() const;
    void give(const Change& change, Kiln::Duration now, Changes& to);

    Scenario scenario_;
    absl::btree_set<Vrf::VrfId> vrfIds_;
    absl::btree_set<std::string> vrfs_;
    absl::btree_set<Stash::OcNextHopIndex> nextHops_;
    absl::btree_set<Pel::FecId> fecs_;
    absl::btree_set<RouteKey> routes_;
    absl::btree_set<FlexCounters::CounterIndex> counters_;
    absl::btree_set<std::string> udpPortSources_;
    absl::btree_set<std::string> decapGroupSources_;
    RunningCounters running_;
    std::size_t described_ = 0;  // of the initial changes
    std::uint64_t round_ = 0;
    Kiln::Duration roundBegan_{};
    std::size_t step_ = 0;
    std::size_t position_ = 0;  // in the step
};

}  // namespace Pel::Forwarder

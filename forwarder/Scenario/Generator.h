#pragma once

#include <absl/container/flat_hash_set.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "forwarder/Scenario/ChangeSource.h"
#include "forwarder/Scenario/GeneratorOptions.h"
#include "forwarder/Scenario/Pace.h"

namespace Pel::Forwarder {

/// A state of any size and its churn, made as it is asked for: an element is a function of its number, the seed and the
/// number of the change that last touched it, so that none is kept.
///
/// Next hop i has the index i + 1, group g the FEC 4/(g + 1). Neighbouring next hops belong to one group each, which some
/// groups have a foreign member besides. The last sixteenth of the next hops is in no group and the last sixteenth of the
/// groups has no routes: those, and any route, come and go. A quarter of the routes is IPv6.
///
/// Chains are elements besides, numbered on behind those: chain c is two next hops, a group of them and a route over it. Four
/// of twenty changes delete one as a whole, route first, or bring one back, next hops first.
///
/// Of five changes four alter an element in place and one deletes an element or adds one again: first deletes only, until
/// up to kMaxAway elements are away, then by turns. Churn that could not be published in its second is not made up for.
///
/// Every next hop with a counter key, that is in a group, counts from 0 on at the rate that its number gives. So many counters change a
/// second, one after the other in the order of the numbers; each to what it has come to by then.
class Generator final : public ChangeSource {
public:
    static constexpr std::size_t kMaxAway = 64;
    static constexpr std::uint64_t kMaxMembers = 64;

    explicit Generator(const GeneratorOptions& options);

    bool describe(Changes& to, std::size_t limit) override;
    void describeReadiness(Changes& to) override;
    bool hasVrfId(Vrf::VrfId id) const override;
    bool hasVrf(const std::string& name) const override;
    bool hasNextHop(Stash::OcNextHopIndex index) const override;
    bool hasFec(Pel::FecId id) const override;
    bool hasRoute(const RouteKey& key) const override;
    bool hasCounter(FlexCounters::CounterIndex index) const override;
    bool hasUdpPorts(const std::string& /*source*/) const override { return false; }
    bool hasDecapGroups(const std::string& /*source*/) const override { return false; }
    std::uint64_t firstFreeIndex() const override { return count(Kind::nextHop) + 1; }
    void due(Kiln::Duration now, Changes& to, std::size_t limit) override;
    std::optional<Kiln::Duration> nextDue() const override;

private:
    enum class Kind : std::uint8_t { nextHop, group, route };
    using Element = std::pair<Kind, std::uint64_t>;  // and number

    // `salt`: 0 at the beginning, else one more than the number of the change.
    Change make(Element element, std::uint64_t salt) const;
    NextHopItem nextHop(std::uint64_t number, std::uint64_t salt) const;
    FecItem group(std::uint64_t number, std::uint64_t salt) const;
    RouteItem route(std::uint64_t number, std::uint64_t salt) const;
    static Change deletion(Element element);

    std::uint64_t random(std::uint64_t stream, std::uint64_t number) const;
    std::uint64_t firstMember(std::uint64_t group) const;
    std::optional<std::pair<std::uint64_t, std::uint32_t>> slotOf(std::uint64_t nextHop) const;
    std::uint64_t count(Kind kind) const;  // chains included
    std::uint64_t standing(Kind kind) const;
    Element ofChain(std::uint64_t chain, std::uint64_t place) const;
    std::optional<Change> chainChange(std::uint64_t number) const;
    std::vector<Stash::OcNextHopIndex> membersOf(std::uint64_t group) const;
    std::optional<Element> pick(std::uint64_t random, std::uint64_t from, bool deletable) const;
    std::optional<Change> change(std::uint64_t number);
    std::uint64_t counted() const;
    CounterItem counter(std::uint64_t turn, Kiln::Duration now) const;

    GeneratorOptions options_;
    std::uint64_t membered_;  // next hops below this are in groups
    std::uint64_t routed_;    // groups below this have routes
    std::uint64_t maxAway_;
    std::uint64_t described_ =
        0;  // elements, numbered through: VRF, tunnels, next hops, groups, routes
    Pace churn_;
    Pace counterChanges_;
    std::deque<Element> away_;
    absl::flat_hash_set<Element> isAway_;
};

}  // namespace Pel::Forwarder

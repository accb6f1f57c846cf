#pragma once

#include <cstdint>
#include <vector>

#include "forwarder/Scenario/Generator.h"

namespace Bench {

/// How many prefixes, and over what: groups of two next hops, one in four of them with a third.
struct PrefixCounts {
    std::uint64_t ipv4 = 0;
    std::uint64_t ipv6 = 0;
    std::uint64_t nextHops = 0;

    std::uint64_t prefixes() const { return ipv4 + ipv6; }
    std::uint64_t groups() const { return nextHops / 2; }
    std::uint64_t entries() const { return nextHops + groups() + prefixes(); }
};

/// A generator's state with as many prefixes as wanted, which changes when it is told to.
class PrefixSource final : public Pel::Forwarder::ChangeSource {
public:
    explicit PrefixSource(const PrefixCounts& counts);

    /// Every second next hop gets another MAC address.
    void changeNextHops();
    void deletePrefixes();

    bool describe(Pel::Forwarder::Changes& to, std::size_t limit) override;
    void describeReadiness(Pel::Forwarder::Changes& to) override { source_.describeReadiness(to); }
    bool hasVrfId(Vrf::VrfId id) const override { return source_.hasVrfId(id); }
    bool hasVrf(const std::string& name) const override { return source_.hasVrf(name); }
    bool hasNextHop(Pel::Stash::OcNextHopIndex index) const override {
        return source_.hasNextHop(index);
    }
    bool hasFec(Pel::FecId id) const override { return source_.hasFec(id); }
    bool hasCounter(FlexCounters::CounterIndex index) const override {
        return source_.hasCounter(index);
    }
    bool hasRoute(const Pel::Forwarder::RouteKey& key) const override {
        return source_.hasRoute(key);
    }
    bool hasUdpPorts(const std::string& source) const override {
        return source_.hasUdpPorts(source);
    }
    bool hasDecapGroups(const std::string& source) const override {
        return source_.hasDecapGroups(source);
    }
    std::uint64_t firstFreeIndex() const override { return source_.firstFreeIndex(); }
    void due(Kiln::Duration now, Pel::Forwarder::Changes& to, std::size_t limit) override;
    std::optional<Kiln::Duration> nextDue() const override { return std::nullopt; }

private:
    enum class Order : std::uint8_t { none, changeNextHops, deletePrefixes };
    void begin(Order order);
    bool wanted(const Pel::Forwarder::RouteKey& key);

    PrefixCounts counts_;
    Pel::Forwarder::GeneratorOptions options_;
    Pel::Forwarder::Generator source_;
    PrefixCounts left_;  // of its prefixes, in this description
    Order order_ = Order::none;
    std::optional<Pel::Forwarder::Generator> again_;  // names the elements that an order is about
};

}  // namespace Bench

#pragma once

#include <absl/container/btree_map.h>
#include <absl/container/btree_set.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "forwarder/Scenario/Change.h"
#include "forwarder/Scenario/Description.h"
#include "forwarder/Scenario/SourcedRecords.h"

namespace Pel::Forwarder {

/// The described state at one time, while a file is read: what is put and deleted gathers until takeChanges() turns it
/// into records. A next hop is counted as entry of the FEC with the smallest id that has it as a member. Its counter
/// goes with it, and a tunnel's with its FEC.
///
/// Unless `lax`, a state that refers to what it does not have is a problem.
class ScenarioState {
public:
    using UdpPort = L3::Tunnel::DestinationPort;
    using RouteTable = std::pair<std::string, Nexo::AddressFamily>;  // VRF and family
    using DecapGroup = Tunnel::Decap::DecapGroup;
    struct Taken {
        Changes data;   ///< readiness that ends, puts in reference order, deletes in the reverse
        Changes ready;  ///< readiness that begins
    };

    ScenarioState(Problems& problems, bool lax) : problems_{problems}, lax_{lax} {}

    // Null when there is none; holds until the next change.
    const DescribedVrf* vrf(const std::string& name) const;
    const DescribedNextHop* nextHop(const std::string& name) const;
    const DescribedFec* fec(Pel::FecId id) const;
    const DescribedRoute* route(const RouteKey& key) const;
    const DescribedCounter* counter(const CounterKey& key) const;
    const Vxlan::VtiStatus* vti(const std::string& name) const;
    const UdpPort* udpPort(const UdpPortKey& key) const { return udpPorts_.find(key); }
    const DecapGroup* decapGroup(const DecapGroupKey& key) const { return decapGroups_.find(key); }

    void put(const DescribedVrf& vrf);
    void put(DescribedNextHop nextHop);
    void put(const DescribedFec& fec);
    void put(const RouteKey& key, const DescribedRoute& route);
    void put(const CounterKey& key, const DescribedCounter& counter);
    void put(const std::string& name, const Vxlan::VtiStatus& vti);
    void put(const UdpPortKey& key, const UdpPort& port) { udpPorts_.put(key, port); }
    void put(const DecapGroupKey& key, const DecapGroup& group) { decapGroups_.put(key, group); }

    // Without effect when it is not there.
    void vrfDel(const std::string& name, Place place);
    void nextHopDel(const std::string& name, Place place);
    void fecDel(Pel::FecId id, Place place);
    void routeDel(const RouteKey& key, Place place);
    void counterDel(const CounterKey& key);
    void vtiDel(const std::string& name);
    void udpPortDel(const UdpPortKey& key) { udpPorts_.del(key); }
    void decapGroupDel(const DecapGroupKey& key) { decapGroups_.del(key); }

    void fecReadyIs(bool ready);
    /// None: nothing is said of the table.
    void quiescedIs(const RouteTable& table, std::optional<bool> quiesced, Place place);
    void fibReadyIs(const std::string& vrf, std::optional<bool> ready, Place place);

    /// What has changed since the last time. Checks the references.
    Taken takeChanges();
    std::uint64_t firstFreeIndex() const { return firstFreeIndex_; }

private:
    using Slot = std::pair<Pel::FecId, std::uint32_t>;
    std::optional<Slot> owner(const std::string& nextHop) const;
    void memberSlotsIs(const DescribedFec& fec, bool present);
    Stash::OcNextHopIndex indexOf(const std::string& nextHop) const;
    void takeReadiness(Taken& to);
    void takePuts(Changes& to);
    void takeDeletes(Changes& to);
    void checkVrfs();
    void checkReferences();
    void checkVrfReferences();
    void checkCounters();
    void takeCounters(Changes& to);
    FlexCounters::CounterIndex indexOf(const CounterKey& key) const;
    void resolve(VrfReference& vrf);
    void countVrfs(const DescribedNextHop& nextHop, bool more);
    const DescribedVrf* vrfOfId(std::uint32_t id) const;
    NextHopItem item(const DescribedNextHop& nextHop) const;
    FecItem item(const DescribedFec& fec) const;

    Problems& problems_;
    bool lax_;
    absl::btree_map<std::string, DescribedVrf> vrfs_;
    absl::btree_map<std::string, DescribedNextHop> nextHops_;
    absl::btree_map<Pel::FecId, DescribedFec> fecs_;
    absl::btree_map<RouteKey, DescribedRoute> routes_;
    absl::btree_map<CounterKey, DescribedCounter> counters_;
    std::map<std::string, Vxlan::VtiStatus> vtis_;
    SourcedRecords<Tunnel::PayloadType, UdpPort> udpPorts_;
    SourcedRecords<std::string, DecapGroup> decapGroups_;
    bool fecReady_ = true;
    absl::btree_map<std::string, std::optional<bool>> fibReady_;  // each VRF's
    absl::btree_map<RouteTable, std::optional<bool>> quiesced_;   // each VRF's two tables'

    // Who refers to what.
    absl::btree_map<std::string, absl::btree_set<Slot>> slots_;  // next hop -> members
    absl::btree_map<Pel::FecId, std::size_t> routesOf_;
    absl::btree_map<std::string, std::size_t> routesIn_;
    absl::btree_map<std::uint32_t, std::size_t> nextHopsTo_;  // VRF id -> decap and fallback

    // Identities hold for ever, so that the end of one thing never is the change of another.
    absl::btree_map<std::string, Stash::OcNextHopIndex> indexes_;
    absl::btree_map<Stash::OcNextHopIndex, std::string> names_;
    absl::btree_map<std::string, Vrf::VrfId> vrfIds_;
    absl::btree_map<Vrf::VrfId, std::string> vrfNames_;
    std::uint64_t firstFreeIndex_ = 1;

    // Not yet taken.
    absl::btree_map<std::string, Place> touchedVrfs_;
    absl::btree_map<std::string, Place> touchedNextHops_;
    absl::btree_map<Pel::FecId, Place> touchedFecs_;
    absl::btree_map<RouteKey, Place> touchedRoutes_;
    absl::btree_set<CounterKey> touchedCounters_;
    bool touchedVtis_ = true;  // at first, to say that there are none
    bool touchedFecReady_ = true;
    absl::btree_set<std::string> touchedFibReady_;
    absl::btree_set<RouteTable> touchedQuiesced_;
};

}  // namespace Pel::Forwarder

#pragma once

#include <string>

#include "PelOpenConfig/PelVrfTables.h"
#include "PelOpenConfig/test/CliFixture.h"
#include "model/Aft/AftContainer.h"
#include "model/Route/RouteStatus.h"
#include "platform/Mesa/Publisher.h"

namespace Pel::Oc {

/// What show commands go through beside the flattened set: an AFT, VRFs and route tables.
class ShownExport : public CliFixture {
protected:
    using Family = Nexo::AddressFamily;
    using RoutePublisher = Mesa::TablePublisher<Nexo::IpPrefix, Mesa::FibRoute>;

    ShownExport() {
        aft->nextHopsIs();
        aft->nextHopGroupsIs();
        aft->nextHopCountersIs();
        Mesa::MountGroup group{mesa};
        group.mount(Vrf::VrfIdMap::Status::kPath, Vrf::VrfIdMap::Status::kType);
        group.close();
        vrfTables = Vel::make<VrfTables>(
            mesa, mesa->entity<Vrf::VrfIdMap::Status>(Vrf::VrfIdMap::Status::kPath));
    }

    /// Exports an empty next hop.
    void exportNextHop(std::uint64_t index) {
        OcApi::NextHop nextHop;
        nextHop.index = OcApi::NextHopIndex{index};
        aft->nextHops()->nextHopIs(nextHop);
    }
    void exportGroup(std::uint64_t id) {
        OcApi::NextHopGroup group;
        group.id = OcApi::NextHopGroupId{id};
        aft->nextHopGroups()->nextHopGroupIs(group);
    }
    void vrfIs(std::uint32_t id, const std::string& name) {
        vrfIds.set(Vrf::VrfId{id}, {Vrf::VrfName{name}});
    }
    void vrfDel(std::uint32_t id) { vrfIds.erase(Vrf::VrfId{id}); }
    static std::string tablePath(Family family, const std::string& vrf) {
        return Mesa::fibTableMountPath(family, vrf, "rib");
    }
    /// A VRF's route table in the store, which the agent reads unless said otherwise.
    RoutePublisher tableIs(Family family, const std::string& vrf, bool read = true) {
        const char* const type =
            family == Family::ipv4 ? Mesa::Fib::RouteStatus::kType : Mesa::Fib6::RouteStatus::kType;
        if (read) {
            Mesa::MountGroup group{mesa};
            group.mount(tablePath(family, vrf), type);
            group.close();
        }
        return {*writer, tablePath(family, vrf), type};
    }

    Vel::Ref<OcApi::AftContainer> aft = Vel::make<OcApi::AftContainer>("aftContainer");
    Mesa::TablePublisher<Vrf::VrfId, Vrf::VrfIdMap::Entry> vrfIds{
        *writer, Vrf::VrfIdMap::Status::kPath, Vrf::VrfIdMap::Status::kType};
    Vel::Ref<VrfTables> vrfTables;
};

}  // namespace Pel::Oc

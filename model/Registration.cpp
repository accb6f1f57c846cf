#include "model/Registration.h"

#include "model/Counters/CounterTable.h"
#include "model/Counters/NexthopGroupEntryToCounterKeyTable.h"
#include "model/Fec/FlattenFecSet.h"
#include "model/Readiness/FlattenFecSetReadyStatus.h"
#include "model/Readiness/GatedFibReady.h"
#include "model/Route/RouteStatus.h"
#include "model/Tolo/Config.h"
#include "model/Tunnel/DecapConfig.h"
#include "model/Tunnel/UdpDestinationPortConfig.h"
#include "model/Vrf/VrfIdMap.h"
#include "model/Vxlan/VtiStatusDir.h"

namespace Pel {
namespace {

template <class T>
void entityType() {
    Hubdb::entityTypeIs(T::kType, [](const std::string& name) { return Vel::make<T>(name); });
}

template <class T>
void tableType() {
    Mesa::tableTypeIs(T::kType, [](const std::string& path) { return Vel::make<T>(path); });
}

}  // namespace

void registerModelTypes() {
    entityType<FlattenFecSetReadyStatus>();
    entityType<GatedReady::FibReady>();
    entityType<Tolo::Config>();
    entityType<Vxlan::VtiStatusDir>();
    entityType<L3::Tunnel::UdpDestinationPortConfig>();
    entityType<Tunnel::Decap::ConfigInput>();

    tableType<FlattenFecSet>();
    tableType<Routing::NexthopGroup::NexthopGroupEntryToCounterKeyTable>();
    tableType<FlexCounters::CounterTable>();
    tableType<Vrf::VrfIdMap::Status>();
    tableType<Mesa::Fib::RouteStatus>();
    tableType<Mesa::Fib6::RouteStatus>();
}

}  // namespace Pel

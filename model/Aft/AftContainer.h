#pragma once

#include "model/Aft/FibReadyContainer.h"
#include "model/Aft/NextHopContainer.h"
#include "model/Aft/NextHopCountersContainer.h"
#include "model/Aft/NextHopGroupContainer.h"
#include "platform/Vel/Entity.h"

namespace Pel::OcApi {

/// Root of the exported AFT: a directory whose children bear the names of the accessors. Each is
/// null until it was made.
class AftContainer final : public Vel::Dir {
public:
    using Vel::Dir::Dir;

    Vel::Ref<NextHopGroupContainer> nextHopGroups() const {
        return entity<NextHopGroupContainer>("nextHopGroups");
    }
    Vel::Ref<NextHopContainer> nextHops() const { return entity<NextHopContainer>("nextHops"); }
    Vel::Ref<FibReadyContainer> fibReady() const { return entity<FibReadyContainer>("fibReady"); }
    Vel::Ref<NextHopCountersContainer> nextHopCounters() const {
        return entity<NextHopCountersContainer>("nextHopCounters");
    }

    void nextHopGroupsIs() { entityIs<NextHopGroupContainer>("nextHopGroups"); }
    void nextHopsIs() { entityIs<NextHopContainer>("nextHops"); }
    void fibReadyIs() { entityIs<FibReadyContainer>("fibReady"); }
    void nextHopCountersIs() { entityIs<NextHopCountersContainer>("nextHopCounters"); }
};

}  // namespace Pel::OcApi

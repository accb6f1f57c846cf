#pragma once

#include "model/Net/Id.h"

namespace Pel::OcApi {

/// Key of an AFT next hop; the same number as the OcNextHopIndex.
using NextHopIndex = Nexo::Id<struct NextHopIndexTag>;
/// Key of an AFT next-hop group; the same number as the FecId.
using NextHopGroupId = Nexo::Id<struct NextHopGroupIdTag>;

}  // namespace Pel::OcApi

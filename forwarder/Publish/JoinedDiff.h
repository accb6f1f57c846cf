#pragma once

#include <cstddef>
#include <vector>

#include "forwarder/Flatten/FlatDiff.h"
#include "forwarder/Publish/FlatStore.h"

namespace Pel::Forwarder {

/// What several batches come to, one after the other: of each thing only the last word, so that
/// what came and went in between is a deletion, and needs no place. Of the first batch the elements
/// before `written` are left out, counted in the order of the members.
///
/// A next hop and the one that follows it in its slot may stand in one diff then. So may the end of
/// a routing table's VRF and the name that the table has next; and beside the end of any VRF the
/// withdrawal of a route and the route that came in its place, since a VRF's tables go empty.
FlatDiff joined(std::vector<FlatDiff>& batches, std::size_t written);

/// Takes out of a joined diff what can go before anything comes, and so makes room: withdrawn
/// routes, VRFs, the FECs that no route of the diff still names in the store, and the next hops that
/// are in no FEC then. Reads in the writer's open transaction.
FlatDiff takeRoom(FlatDiff& joined, FlatStore& store);

}  // namespace Pel::Forwarder

#pragma once

#include "forwarder/Flatten/FlatDiff.h"
#include "model/Fec/FlattenFecNextHop.h"

/// Between the forwarder's plain structs and the records of the store.
namespace Pel::Forwarder {

/// Fills `record`, which is new. Labels go in as they are pushed.
void toRecord(const FlatNextHop& nextHop, Stash::FlattenFecNextHop& record);
/// What of a next hop's identity and content the record holds; index, FEC and slot stay unset.
FlatNextHop fromRecord(const Stash::FlattenFecNextHop& record);

}  // namespace Pel::Forwarder

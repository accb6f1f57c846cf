#pragma once

#include <cstddef>
#include <vector>

#include "forwarder/Flatten/FlatDiff.h"

namespace Pel::Forwarder {

/// What several batches come to, one after the other: of each thing only the last word, so that
/// what came and went in between is a deletion, and needs no place. Of the first batch the elements
/// before `written` are left out, counted as they are written: withdrawn routes first, then the
/// others in the order of the members.
///
/// A next hop and the one that follows it in its slot may stand in one diff then.
FlatDiff joined(std::vector<FlatDiff>& batches, std::size_t written);

}  // namespace Pel::Forwarder

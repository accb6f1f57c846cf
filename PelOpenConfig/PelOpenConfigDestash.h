#pragma once

#include "model/Fec/FlattenFec.h"
#include "model/Fec/FlattenFecNextHop.h"
#include "platform/Stash/AnchorValidator.h"
#include "platform/Stash/Manager.h"

namespace Pel {

/// Reads a FEC out of the stash under the anchor validator `av` (which may be null: no validation).
///
/// Null, with a trace of level 5, when the writer is null, its record has another version by now,
/// or is corrupt: the record is not available and the caller skips it. Null without a trace when
/// the store does not have the record any more. Anything else that the read throws goes on to the
/// caller. No validator is left behind on the store manager, whatever happens; one that is there
/// already was left behind by a read that nests, which is a broken precondition.
Vel::Ref<const Stash::FlattenFec> destashFec(const Stash::Handle& writerFec,
                                             const Vel::Ref<Stash::Manager>& storeManager,
                                             Mem::AnchorValidator* av);

/// The same for a next hop.
Vel::Ref<const Stash::FlattenFecNextHop> destashNextHop(
    const Stash::Handle& writerNextHop,
    const Vel::Ref<Stash::Manager>& storeManager,
    Mem::AnchorValidator* av);

}  // namespace Pel

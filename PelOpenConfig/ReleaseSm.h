#pragma once

#include <utility>

#include "platform/Vel/Ref.h"

namespace Pel::Oc {

/// Switches the machine off, has it clean up, and drops it. What it deletes may have somebody ask
/// for the same again: it is let go of first.
template <class Machine>
void release(Vel::Ref<Machine>& machine) {
    const Vel::Ref<Machine> going = std::exchange(machine, nullptr);
    if (!going) { return; }
    going->hasNotificationActiveIs(false);
    going->handleCleanup();
}

}  // namespace Pel::Oc

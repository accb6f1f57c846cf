#pragma once

#include "platform/Vel/Ref.h"

namespace Vel {

/// Base of the state machines: classes that react to state and write state, named ...Sm.
///
/// A machine subscribes in its handleInitialized(), which its construction runs. Before a machine
/// is released its owner switches its notifications off and then calls its own clean-up, if it has
/// one: hasNotificationActiveIs(false) silences inputs only, never the clean-up.
class Sm : public RefCounted {
public:
    bool hasNotificationActive() const { return notificationActive_; }
    void hasNotificationActiveIs(bool active) { notificationActive_ = active; }

private:
    bool notificationActive_ = true;
};

}  // namespace Vel

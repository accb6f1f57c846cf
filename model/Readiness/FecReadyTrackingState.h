#pragma once

#include "platform/Vel/Attribute.h"
#include "platform/Vel/Ref.h"

namespace Pel {

/// The agent-wide halves of readiness. Each has one writer, which only ever raises it.
class FecReadyTrackingState final : public Vel::RefCounted {
public:
    /// Every next hop has been mapped. Writer: the next-hop mapper.
    bool nhReady() const { return nhReady_.get(); }
    void nhReadyIs(bool ready) { nhReady_.set(ready); }
    Vel::Publisher<>& onNhReady() const { return nhReady_.changed(); }

    /// Every next-hop group has been mapped. Writer: the next-hop group mapper.
    bool nhgReady() const { return nhgReady_.get(); }
    void nhgReadyIs(bool ready) { nhgReady_.set(ready); }
    Vel::Publisher<>& onNhgReady() const { return nhgReady_.changed(); }

private:
    Vel::Attribute<bool> nhReady_{false};
    Vel::Attribute<bool> nhgReady_{false};
};

}  // namespace Pel

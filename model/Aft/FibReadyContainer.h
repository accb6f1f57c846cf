#pragma once

#include "platform/Vel/Attribute.h"
#include "platform/Vel/Entity.h"
#include "platform/Vel/Fields.h"

namespace Pel::OcApi {

/// Says that all next hops and groups are exported. One writer: the FIB-ready mapper.
class FibReadyContainer final : public Vel::Entity {
public:
    using Vel::Entity::Entity;
    bool fecReady() const { return fecReady_.get(); }
    void fecReadyIs(bool ready) { fecReady_.set(ready); }
    Vel::Publisher<>& onFecReady() const { return fecReady_.changed(); }
    static constexpr auto fields() {
        return Vel::fields(Vel::field("fecReady", &FibReadyContainer::fecReady_));
    }

private:
    Vel::Attribute<bool> fecReady_{false};
};

}  // namespace Pel::OcApi

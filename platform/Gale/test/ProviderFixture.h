#pragma once

#include "platform/Gale/test/ServiceFixture.h"

namespace Gale {

/// A service and what its provider says; true: each of its slices is as short as can be.
class ProviderFixture : public ServiceFixture, public testing::WithParamInterface<bool> {
public:
    static std::string name(const testing::TestParamInfo<bool>& always) {
        return always.param ? "AlwaysYield" : "NeverYield";
    }

protected:
    ProviderFixture() {
        if (GetParam()) { scheduler->yieldPolicyIs(std::make_unique<Kiln::AlwaysYield>()); }
    }
    std::size_t shown(Lane lane) { return channel().journal.statistics().entries[index(lane)]; }
    ProviderStatistics statistics() { return channel().provider->statistics(); }
};

}  // namespace Gale

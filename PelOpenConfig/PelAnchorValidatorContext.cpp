#include "PelOpenConfig/PelAnchorValidatorContext.h"

#include <utility>

#include "platform/Vel/Assert.h"

namespace Pel::Oc {

AnchorValidatorContext::AnchorValidatorContext(Vel::Ref<const FlattenFecSet> flattenFecSet)
    : Vel::Entity{"anchorValidatorCtx"}, flattenFecSet_{std::move(flattenFecSet)} {
    handleInitialized();
}

void AnchorValidatorContext::handleInitialized() {
    VEL_ASSERT(flattenFecSet_ != nullptr);
    fecAvIs(flattenFecSet_->fec().anchorValidator());
    nhAvIs(flattenFecSet_->nextHop().anchorValidator());
}

Vel::Ref<AnchorValidatorContext> anchorValidatorContextFactory(
    Vel::Ref<const FlattenFecSet> flattenFecSet) {
    return Vel::make<AnchorValidatorContext>(std::move(flattenFecSet));
}

}  // namespace Pel::Oc

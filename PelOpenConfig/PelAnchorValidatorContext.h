#pragma once

#include "model/Fec/FlattenFecSet.h"
#include "platform/Stash/AnchorValidator.h"
#include "platform/Vel/Entity.h"

namespace Pel::Oc {

/// The two anchor validators of the flattened FEC set, taken out once so that every reader passes
/// the same ones. The set owns them; the context keeps the set alive.
class AnchorValidatorContext final : public Vel::Entity {
public:
    /// A null set is a broken precondition.
    explicit AnchorValidatorContext(Vel::Ref<const FlattenFecSet> flattenFecSet);

    /// Takes the validators that the set's two stores carry now.
    void handleInitialized();

    const Vel::Ref<const FlattenFecSet>& flattenFecSet() const { return flattenFecSet_; }
    /// Of the FEC store; null: read without validation.
    Mem::AnchorValidator* fecAv() const { return fecAv_; }
    void fecAvIs(Mem::AnchorValidator* fecAv) { fecAv_ = fecAv; }
    /// Of the next-hop store; null: read without validation.
    Mem::AnchorValidator* nhAv() const { return nhAv_; }
    void nhAvIs(Mem::AnchorValidator* nhAv) { nhAv_ = nhAv; }

private:
    Vel::Ref<const FlattenFecSet> flattenFecSet_;
    Mem::AnchorValidator* fecAv_ = nullptr;
    Mem::AnchorValidator* nhAv_ = nullptr;
};

Vel::Ref<AnchorValidatorContext> anchorValidatorContextFactory(
    Vel::Ref<const FlattenFecSet> flattenFecSet);

}  // namespace Pel::Oc

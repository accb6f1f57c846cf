#include "platform/Stash/AnchorValidator.h"

#include "platform/Stash/Handle.h"
#include "platform/Stash/Manager.h"

namespace Mem {

bool AnchorValidator::check(const Pel::Stash::Handle& handle, std::uint32_t version) {
    valid_ = handle.version == version;
    return valid_;
}

AnchorValidatorGuard::AnchorValidatorGuard(Pel::Stash::Manager& manager, AnchorValidator* validator)
    : manager_{manager} {
    if (validator != nullptr) { validator->init(); }
    manager_.anchorValidatorIs(validator);
}

AnchorValidatorGuard::~AnchorValidatorGuard() {
    manager_.anchorValidatorIs(nullptr);
}

}  // namespace Mem

#pragma once

#include <cstdint>

#include "platform/Vel/Ref.h"

namespace Pel::Stash {
class Manager;
struct Handle;
}  // namespace Pel::Stash

namespace Mem {

/// Says whether a record, read through a handle, is still the one that the handle named. Each store
/// of a stash set has one and owns it.
class AnchorValidator {
public:
    /// Forgets what an earlier read left behind.
    void init() { valid_ = true; }
    /// Notes the version found at the handle's record; answers whether it is the handle's.
    bool check(const Pel::Stash::Handle& handle, std::uint32_t version);
    bool valid() const { return valid_; }

private:
    bool valid_ = true;
};

/// Installs a validator (which may be null) on a store manager for one read, initialises it, and
/// removes it on every way out.
class [[nodiscard]] AnchorValidatorGuard {
public:
    AnchorValidatorGuard(Pel::Stash::Manager& manager, AnchorValidator* validator);
    AnchorValidatorGuard(const AnchorValidatorGuard&) = delete;
    AnchorValidatorGuard& operator=(const AnchorValidatorGuard&) = delete;
    ~AnchorValidatorGuard();

private:
    Pel::Stash::Manager& manager_;
};

}  // namespace Mem

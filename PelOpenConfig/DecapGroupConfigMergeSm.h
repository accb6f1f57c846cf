#pragma once

#include <utility>

#include "PelOpenConfig/ConfigMergeSm.h"
#include "model/Tunnel/DecapConfig.h"
#include "platform/Hubdb/EntityManager.h"

namespace Pel::Oc {

/// Merges the decap groups of the command line and of the dynamic sources, by name of the group, see
/// ConfigMergeSm.
class DecapGroupConfigMergeSm final : public ConfigMergeSm {
public:
    /// `cli` and `dynamic` may be null: empty. Runs on the entity manager's scheduler.
    DecapGroupConfigMergeSm(Vel::Ref<Tunnel::Decap::Config> merged,
                            Vel::Ref<const Tunnel::Decap::ConfigInput> cli,
                            Vel::Ref<const Vel::Dir> dynamic,
                            const Vel::Ref<Hubdb::EntityManager>& entityManager);

private:
    void begin() override;
    bool add(const Vel::Entity& source) override;
    void end() override;

    Vel::Ref<Tunnel::Decap::Config> merged_;  // output; nobody else writes it
    Vel::Ref<const Tunnel::Decap::ConfigInput> cli_;
    Tunnel::Decap::ConfigRecord record_;  // of the merge under way
};

/// Takes the constructor's arguments.
template <class... Args>
Vel::Ref<DecapGroupConfigMergeSm> DecapGroupConfigMergeSmIs(Args&&... args) {
    return Vel::make<DecapGroupConfigMergeSm>(std::forward<Args>(args)...);
}

}  // namespace Pel::Oc

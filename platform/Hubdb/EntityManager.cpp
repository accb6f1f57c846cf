#include "platform/Hubdb/EntityManager.h"

#include <utility>

#include "platform/Hubdb/Mirror.h"
#include "platform/Mesa/EntityManager.h"

namespace Hubdb {
namespace {

constexpr Kiln::TaskPriority kMountPriority = 1;
constexpr std::chrono::seconds kRetryInterval{1};

}  // namespace

EntityManager::EntityManager(std::string name,
                             unsigned cellId,
                             Vel::Ref<Kiln::TaskScheduler> scheduler,
                             Vel::Ref<Store::Reader> state,
                             Vel::Ref<Store::Reader> configuration,
                             Vel::Ref<Mesa::EntityManager> sharedMemory)
    : name_{std::move(name)},
      cellId_{cellId},
      scheduler_{std::move(scheduler)},
      sharedMemory_{std::move(sharedMemory)},
      globalDir_{Vel::make<Vel::Dir>("global")},
      completion_{std::make_unique<Kiln::Task>(
          scheduler_, "HubdbMounts", kMountPriority, [this] { return completeMounts(); })} {
    const auto settled = [this] { completion_->schedule(); };
    state_ = std::make_unique<Mirror>(std::move(state), settled);
    configuration_ = std::make_unique<Mirror>(std::move(configuration), settled);
}

EntityManager::~EntityManager() = default;

std::string EntityManager::cellPath(std::string_view path) const {
    return "cell/" + std::to_string(cellId_) + "/" + std::string{path};
}

EntityManager::Mirror& EntityManager::mirror(std::string_view path) const {
    return path.starts_with("mgmt/") ? *configuration_ : *state_;
}

Vel::Ref<Vel::Entity> EntityManager::entity(std::string_view path) const {
    return mirror(path).entity(path);
}

Vel::Ref<MountGroup> EntityManager::mountGroup(Mounter& mounter) {
    return Vel::make<MountGroup>(*this, mounter);
}

/// Completes the closed groups once what is published can be relied on.
bool EntityManager::completeMounts() {
    if (closing_.empty()) { return false; }
    if (!state_->ready() || !configuration_->ready()) {
        completion_->scheduleAfter(kRetryInterval);  // a store may go away while it is swept
        return false;
    }
    const Vel::Ref<EntityManager> keep{this};
    for (const Vel::Ref<MountGroup>& group : std::exchange(closing_, {})) { group->complete(); }
    return false;
}

MountGroup::MountGroup(EntityManager& entityManager, Mounter& mounter)
    : entityManager_{entityManager}, mounter_{&mounter} {}

MountGroup::~MountGroup() = default;

void MountGroup::mount(const std::string& path,
                       const std::string& type,
                       const std::string& mode,
                       unsigned /*flags*/) {
    wanted_.push_back({path, type, mode});
}

void MountGroup::close(bool /*reserved*/,
                       const std::string& /*reservedText*/,
                       Kiln::Duration /*reservedDuration*/) {
    entityManager_.closing_.emplace_back(this);
    entityManager_.completion_->schedule();
}

void MountGroup::complete() {
    if (mounter_ == nullptr) { return; }
    MountStatus status = mountSuccess_;
    for (const auto& [path, type, mode] : std::exchange(wanted_, {})) {
        if (!entityManager_.mirror(path).mountIs(path, type, mode)) { status = mountFailure_; }
    }
    mounter_->doMountsComplete(status, Vel::Ref<EntityManager>{&entityManager_});
}

}  // namespace Hubdb
